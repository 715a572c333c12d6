#ifndef ZYLBASSHAREDPTR_H
#define ZYLBASSHAREDPTR_H

#include <memory>
#include <type_traits>
#include <utility>

#include "ZYLBasRefCounter.h"

/// Shares ownership of an object with all its copies; the last one deletes the object. The counts are
/// plain integers: all pointers to one object belong to one thread. To convert a pointer to a derived
/// class, T needs a virtual destructor.
template <class T>
class ZYLBasSharedPtr {
  public:
    /// Becomes the first owner of `p`, which may be null. `p` is deleted when the counter block cannot be
    /// allocated.
    ZYLBasSharedPtr(T* p) {
        std::unique_ptr<T> owner(p);
        Connect(p, new ZYLBasRefCounter);
        static_cast<void>(owner.release());
    }

    ZYLBasSharedPtr(const ZYLBasSharedPtr& other) { Connect(other.m_pointer, other.m_counter); }

    template <class U>
    requires std::is_convertible_v<U*, T*> ZYLBasSharedPtr(const ZYLBasSharedPtr<U>& other) {
        Connect(other.PRIVATEGetPointer(), other.PRIVATEGetCounter());
    }

    ZYLBasSharedPtr& operator=(ZYLBasSharedPtr other) {
        std::swap(m_pointer, other.m_pointer);
        std::swap(m_counter, other.m_counter);
        return *this;
    }

    ~ZYLBasSharedPtr() { Disconnect(); }

    T* get() const { return m_pointer; }
    T* operator->() const { return m_pointer; }
    T& operator*() const { return *m_pointer; }

    /// For the conversion between pointer types only.
    T* PRIVATEGetPointer() const { return m_pointer; }
    ZYLBasRefCounter* PRIVATEGetCounter() const { return m_counter; }

  private:
    void Connect(T* p, ZYLBasRefCounter* counter) {
        m_pointer = p;
        m_counter = counter;
        if (m_counter != nullptr) {
            ++m_counter->m_count;
        }
    }

    void Disconnect() {
        if (m_counter == nullptr) {
            return;
        }
        if (m_counter->m_count != 1) {
            --m_counter->m_count;
            return;
        }
        delete m_pointer;
        m_counter->m_count = 0;
        if (m_counter->m_weakCount == 0) {
            mem_Free(m_counter);  // not delete: compilers would warn of a use after free in other owners
        }
    }

    T* m_pointer = nullptr;
    ZYLBasRefCounter* m_counter = nullptr;
};

#endif
