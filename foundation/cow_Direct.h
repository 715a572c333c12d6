#ifndef COW_DIRECT_H
#define COW_DIRECT_H

/// The copy policy of objects that are copied by their copy constructor.
template <class T>
class cow_Direct {
  public:
    /// A new object, allocated by T's own `operator new`; the caller owns it.
    static T* Copy(const T& object) { return new T(object); }
};

#endif
