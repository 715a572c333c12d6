#include "atr_NaturalOrder.h"

#include <cstddef>
#include <cstring>

namespace {

int g_naturalOrder = 0;

constexpr const char* kDigits = "0123456789";

int Sign(std::ptrdiff_t difference) {
    return difference < 0 ? -1 : (difference > 0 ? 1 : 0);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// A run of digits: its leading zeros and what follows them.
struct DigitRun {
    explicit DigitRun(const char* text)
        : zeros(std::strspn(text, "0")),
          significant(text + zeros),
          length(std::strspn(significant, kDigits)) {}

    const char* End() const { return significant + length; }

    std::size_t zeros;
    const char* significant;
    std::size_t length;
};

/// By value: without leading zeros, the longer run is the larger.
int CompareValues(const DigitRun& a, const DigitRun& b) {
    if (a.length != b.length) {
        return a.length < b.length ? -1 : 1;
    }
    return Sign(std::memcmp(a.significant, b.significant, a.length));
}

}  // namespace

int atr_getNaturalOrder() {
    return g_naturalOrder;
}

void atr_setNaturalOrder(int naturalOrder) {
    g_naturalOrder = naturalOrder;
}

int strnatcmp(const char* a, const char* b) {
    int zerosDecide = 0;
    while (*a != '\0' || *b != '\0') {
        if (!IsDigit(*a) || !IsDigit(*b)) {
            if (*a != *b) {
                return static_cast<unsigned char>(*a) < static_cast<unsigned char>(*b) ? -1 : 1;
            }
            ++a;
            ++b;
            continue;
        }
        const DigitRun runA(a);
        const DigitRun runB(b);
        if (const int order = CompareValues(runA, runB)) {
            return order;
        }
        if (zerosDecide == 0) {
            zerosDecide =
                Sign(static_cast<std::ptrdiff_t>(runA.zeros) - static_cast<std::ptrdiff_t>(runB.zeros));
        }
        a = runA.End();
        b = runB.End();
    }
    return zerosDecide;
}
