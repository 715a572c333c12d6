#ifndef ZYLBASPAIR_H
#define ZYLBASPAIR_H

/// An entry of a ZYLBasMap: its key, which never changes, and its value.
template <class K, class V>
struct ZYLBasPair {
    ZYLBasPair(const K& key, const V& value) : first(key), second(value) {}

    const K first;
    V second;
};

#endif
