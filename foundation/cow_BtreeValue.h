#ifndef COW_BTREEVALUE_H
#define COW_BTREEVALUE_H

/// What stands for "no value" in a tree map.
template <class V>
class cow_BtreeValue {
  public:
    /// The null of V: its value-initialised object, a null pointer for pointer types.
    static V NullValue() { return V(); }
};

#endif
