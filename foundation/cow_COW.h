#ifndef COW_COW_H
#define COW_COW_H

#include <memory>

#include "cow_CountedHld.h"
#include "cow_Direct.h"

/// A copy-on-write holder: a cow_CountedHld that copies a shared referent before it is written. `Policy`
/// makes the copy. Ownership, exceptions and threads are those of cow_CountedHld.
template <class T, class Policy = cow_Direct<T>>
class cow_COW : public cow_CountedHld<T> {
  public:
    /// Adopts `referent`, made with `new` and held by nobody.
    cow_COW(T* referent) : cow_CountedHld<T>(referent) {}
    /// Holds a copy of `object`.
    cow_COW(const T& object) : cow_CountedHld<T>(Policy::Copy(object)) {}
    cow_COW(const cow_COW& other) noexcept = default;
    ~cow_COW() = default;

    cow_COW& operator=(T* referent) {
        cow_CountedHld<T>::operator=(referent);
        return *this;
    }
    cow_COW& operator=(const cow_COW& other) noexcept = default;

    /// Whether both hold the same object.
    bool Identical(const cow_COW& other) const { return this->m_referent == other.m_referent; }

    /// The referent for writing; only while HasValue(). A shared referent is copied first, with two
    /// allocations (object and counter), and stays with the other holders. If that raises, this holder
    /// still shares it.
    T* Get();
};

template <class T, class Policy>
T* cow_COW<T, Policy>::Get() {
    if (!this->Exclusive()) {
        std::unique_ptr<T> copy(Policy::Copy(this->ConstGet()));
        auto* counter = new cow_Counter;
        this->m_counter->Decrement();
        this->m_counter = counter;
        this->m_referent = copy.release();
    }
    return this->m_referent;
}

#endif
