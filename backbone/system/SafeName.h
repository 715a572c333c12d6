#ifndef ZYL_BACKBONE_SYSTEM_SAFENAME_H
#define ZYL_BACKBONE_SYSTEM_SAFENAME_H

#include <cstdint>
#include <string>
#include <string_view>

namespace zyl::backbone::system {

/// A name as part of a file name, on any file system: digits, lower-case letters and '-' stand for
/// themselves, other bytes become %XX (upper-case letters too: some file systems do not tell cases apart).
/// One that would be longer than 64 bytes becomes its beginning, '~' and a hash. It never contains '/' or
/// '.'.
std::string SafeName(const std::string& name);

/// Whether SafeName makes this of some name.
bool IsSafeName(const std::string& safe);

/// FNV-1a, 64 bits, as 16 hexadecimal digits.
std::string HashText(std::string_view text);

}  // namespace zyl::backbone::system

#endif
