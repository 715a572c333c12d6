#ifndef ZYLMSG_BODYTEXT_H
#define ZYLMSG_BODYTEXT_H

#include <string>
#include <string_view>

/// What the body of a message says, as text for a line: the string, the document, the kind of kill request,
/// the step of a file transfer. Of a type that is not known here, and of a body that breaks its type's form,
/// it gives the first bytes. The bytes may be anything.
std::string BodyText(std::string_view type, std::string_view body);

#endif
