#ifndef ZYL_TOOLS_WIREBYTES_H
#define ZYL_TOOLS_WIREBYTES_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "ZYLSimRpm_Swapper.h"

/// Reads wire integers and wire strings in sequence from untrusted bytes, in place. For an item that
/// exceeds the bytes it returns nothing, and nothing from then on; the library's ZYLMsgWireReader would
/// end the process, which a program that only displays messages must not do.
class WireBytes {
  public:
    explicit WireBytes(std::string_view bytes) : m_left(bytes) {}

    std::optional<int> Int() {
        const std::optional<std::string_view> bytes = Take(4);
        int value = 0;
        if (bytes) {
            ZYLSimRpm_Swapper::InternalizeScalar(bytes->data(), value);
        }
        return bytes ? std::optional(value) : std::nullopt;
    }

    std::optional<std::string_view> String() { return Take(Int().value_or(-1)); }

    std::string_view Left() const { return m_left; }

  private:
    std::optional<std::string_view> Take(int size) {
        if (size < 0 || static_cast<std::size_t>(size) > m_left.size()) {
            m_left = {};
            return std::nullopt;
        }
        const std::string_view taken = m_left.substr(0, static_cast<std::size_t>(size));
        m_left.remove_prefix(taken.size());
        return taken;
    }

    std::string_view m_left;
};

#endif
