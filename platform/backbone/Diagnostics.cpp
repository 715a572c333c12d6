#include "Diagnostics.h"

#include <array>
#include <cstdio>

#include "QORFatalError.h"

namespace zyl::backbone {

void Report(const std::string& text) {
    const std::string line = "ZYLFeaBackbone: " + text + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void Fatal(const std::string& text, const char* file, int line) {
    QORFatalError(("ZYLFeaBackbone: " + text).c_str(), nullptr, nullptr, nullptr, file, line);
}

std::string Quoted(const std::string& name) {
    std::string result = "'";
    for (const char character : name.substr(0, kQuotedLength)) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7f) {
            result += character;
        } else {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", byte);
            result += escape.data();
        }
    }
    return result + (name.size() > kQuotedLength ? "...'" : "'");
}

}  // namespace zyl::backbone
