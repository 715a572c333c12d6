#include "Diagnostics.h"

#include <fmt/format.h>

#include <cstdio>

#include "QORFatalError.h"
#include "QORText.h"

namespace zyl::backbone {

void Report(const std::string& text) {
    const std::string line = fmt::format("ZYLFeaBackbone: {}\n", text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void Fatal(const std::string& text, const char* file, int line) {
    QORFatalError(fmt::format("ZYLFeaBackbone: {}", text).c_str(), nullptr, nullptr, nullptr, file, line);
}

std::string Quoted(const std::string& name) {
    return QORText::Quoted(name);
}

std::string QuotedPath(const std::string& path) {
    return QORText::Quoted(path, path.size());
}

}  // namespace zyl::backbone
