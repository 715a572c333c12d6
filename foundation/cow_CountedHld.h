#ifndef COW_COUNTEDHLD_H
#define COW_COUNTEDHLD_H

#include <memory>

#include "cow_Counter.h"
#include "mem_AllocationOperators.h"

/// A reference-counted holder: all holders of a referent share its counter, and the last one destroys and
/// frees both. The first holder owns the referent from the start of its constructor, even if that raises.
///
/// Copying never allocates and never raises. Operations that need a new counter allocate once and may
/// raise std::bad_alloc. One thread at a time uses the holders of a referent.
template <class T>
class cow_CountedHld : public ZYLBasCowAllocator {
  public:
    /// Holds nothing; allocates a counter all the same.
    cow_CountedHld() : m_counter(new cow_Counter) {}
    /// Adopts `referent`, which was made with `new` and has no holder; null is allowed. If the counter
    /// cannot be allocated, the referent is destroyed.
    cow_CountedHld(T* referent) : cow_CountedHld(std::unique_ptr<T>(referent)) {}
    /// Shares the other's referent.
    cow_CountedHld(const cow_CountedHld& other) noexcept
        : ZYLBasCowAllocator(), m_counter(other.m_counter), m_referent(other.m_referent) {
        m_counter->Increment();
    }
    ~cow_CountedHld() { DropReference(); }

    /// Releases the current referent and adopts `referent` as the constructor does. If that raises,
    /// `referent` is destroyed and this holder unchanged.
    cow_CountedHld& operator=(T* referent);
    /// Releases the current referent and shares that of `other`, which may be the same.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    cow_CountedHld& operator=(const cow_CountedHld& other) noexcept;

    /// Whether this is the only holder of its referent.
    bool Exclusive() const { return m_counter->References() == 1; }
    bool HasValue() const { return m_referent != nullptr; }
    bool IsNull() const { return m_referent == nullptr; }

    /// The referent, shared or not; null if there is none.
    T* GetPtr() const { return m_referent; }
    /// The same; only while HasValue().
    T& GetRef() const { return *m_referent; }
    /// For reading; only while HasValue().
    const T& ConstGet() const { return *m_referent; }

  protected:
    /// Releases the referent. The last holder destroys and frees it with its counter, and both become
    /// null.
    void DropReference();
    /// Destroys and frees the referent and the counter; both become null.
    void Delete();
    /// Destroys and frees the referent.
    void DeleteReferent() { delete m_referent; }

    cow_Counter* m_counter;
    T* m_referent = nullptr;

  private:
    explicit cow_CountedHld(std::unique_ptr<T> referent)
        : m_counter(new cow_Counter), m_referent(referent.release()) {}
};

template <class T>
cow_CountedHld<T>& cow_CountedHld<T>::operator=(T* referent) {
    std::unique_ptr<T> adopted(referent);
    if (Exclusive()) {
        DeleteReferent();
    } else {
        auto* counter = new cow_Counter;
        m_counter->Decrement();
        m_counter = counter;
    }
    m_referent = adopted.release();
    return *this;
}

// Incrementing first makes self-assignment safe, and assignment from a holder that this one's referent
// owns.
template <class T>
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
cow_CountedHld<T>& cow_CountedHld<T>::operator=(const cow_CountedHld& other) noexcept {
    cow_Counter* counter = other.m_counter;
    T* referent = other.m_referent;
    counter->Increment();
    DropReference();
    m_counter = counter;
    m_referent = referent;
    return *this;
}

template <class T>
void cow_CountedHld<T>::DropReference() {
    if (m_counter->Decrement()) {
        Delete();
    }
}

template <class T>
void cow_CountedHld<T>::Delete() {
    DeleteReferent();
    m_referent = nullptr;
    delete m_counter;
    m_counter = nullptr;
}

#endif
