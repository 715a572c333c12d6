#ifndef ZYL_TOOLS_ENVELOPELINE_H
#define ZYL_TOOLS_ENVELOPELINE_H

#include <string>
#include <string_view>

/// The line of a message as the backbone delivers it, its envelope not opened yet: see MessageLine. The
/// content is the string, the document, the kind of kill request or the step of a file transfer; of a type
/// that is not known here, and of an envelope or a body that breaks its form, the first bytes. The bytes may
/// be anything.
std::string EnvelopeLine(std::string_view type, std::string_view envelope);

#endif
