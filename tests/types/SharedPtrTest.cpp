#include "ZYLBasSharedPtr.h"

#include <gmock/gmock.h>

namespace {

struct Counted {
    explicit Counted(int& living) : m_living(living) { ++m_living; }
    virtual ~Counted() { --m_living; }
    int& m_living;
};

struct Derived : Counted {
    using Counted::Counted;
};

TEST(SharedPtr, LastOwnerDeletesTheObject) {
    int a = 0, b = 0;
    {
        const ZYLBasSharedPtr<Derived> derived(new Derived(a));
        ZYLBasSharedPtr<Counted> base(derived);
        const ZYLBasSharedPtr<Counted> other(new Counted(b));
        EXPECT_EQ(base.get(), derived.get());
        EXPECT_EQ(derived.PRIVATEGetCounter()->m_count, 2u);
        base = *&base;
        base = other;
        EXPECT_EQ(derived.PRIVATEGetCounter()->m_count, 1u);
        EXPECT_EQ(other.PRIVATEGetCounter()->m_count, 2u);
        base = static_cast<Counted*>(nullptr);
        EXPECT_EQ(a + b, 2);
    }
    EXPECT_EQ(a + b, 0);
}

}  // namespace
