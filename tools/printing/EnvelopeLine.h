#ifndef ZYL_TOOLS_ENVELOPELINE_H
#define ZYL_TOOLS_ENVELOPELINE_H

#include <string>
#include <string_view>

/// The MessageLine of a message as the backbone delivers it, still in its envelope. The content is the
/// string, the document, the kind of kill request or the step of a file transfer; for an unknown type, and
/// for a malformed envelope or body, it is the first bytes. The bytes are not trusted.
std::string EnvelopeLine(std::string_view type, std::string_view envelope);

#endif
