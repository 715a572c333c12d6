#include "ZYLBasSharedPtr.h"

#include <gmock/gmock.h>

#include <optional>

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
    int living = 0;
    std::optional<ZYLBasSharedPtr<Derived>> first(new Derived(living));
    std::optional<ZYLBasSharedPtr<Counted>> base(*first);
    std::optional<ZYLBasSharedPtr<Counted>> copy(*base);
    EXPECT_EQ(copy->get(), first->get());
    EXPECT_EQ(copy->PRIVATEGetCounter()->m_count, 3u);
    first.reset();
    base.reset();
    EXPECT_EQ(copy->PRIVATEGetCounter()->m_count, 1u);
    EXPECT_EQ(living, 1);
    copy.reset();
    EXPECT_EQ(living, 0);
}

TEST(SharedPtr, AssignmentLetsGoOfTheOldObjectAndSharesTheNew) {
    int a = 0, b = 0;
    ZYLBasSharedPtr<Counted> first = new Counted(a);
    const ZYLBasSharedPtr<Counted> second(new Counted(b));
    first = *&first;
    EXPECT_EQ(a, 1);
    first = second;
    EXPECT_EQ(a, 0);
    EXPECT_EQ(second.PRIVATEGetCounter()->m_count, 2u);
    first = static_cast<Counted*>(nullptr);
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second.PRIVATEGetCounter()->m_count, 1u);
    EXPECT_EQ(b, 1);
}

}  // namespace
