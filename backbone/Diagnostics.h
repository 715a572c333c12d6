#ifndef ZYL_BACKBONE_DIAGNOSTICS_H
#define ZYL_BACKBONE_DIAGNOSTICS_H

#include <string>

namespace zyl::backbone {

/// Writes "ZYLFeaBackbone: <text>" as one line to standard error, in one piece.
void Report(const std::string& text);

/// The same as a fatal error. `file` and `line` say where it was found. Does not return.
[[noreturn]] void Fatal(const std::string& text, const char* file, int line);

/// A name between quotes, safe to print and not too long for a line; see QORText.
std::string Quoted(const std::string& name);
/// The same for a path, which is of no use when it is cut.
std::string QuotedPath(const std::string& path);

}  // namespace zyl::backbone

#endif
