#ifndef ZYL_BACKBONE_LOCAL_DESCRIPTORS_H
#define ZYL_BACKBONE_LOCAL_DESCRIPTORS_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "FileDescriptor.h"

/// Bytes that cross a socket together with open descriptors. Neither call waits; errors are left in errno.

namespace zyl::backbone::local {

/// No message of this library comes with more; of what a stranger sends the rest is closed by the kernel.
constexpr int kMostDescriptors = 3;

/// Whether this process can open so many descriptors more.
bool CanOpen(int count);

/// Sends bytes with descriptors, which stay open here. Gives the number of bytes sent, -1 on failure.
std::ptrdiff_t SendWithDescriptors(int socket, const std::string& bytes, std::span<const int> descriptors);

/// Receives bytes into `room` and appends the descriptors that came with them. Gives the number of bytes, 0
/// at the end, -1 on failure.
std::ptrdiff_t ReceiveWithDescriptors(int socket, std::span<char> room,
                                      std::vector<FileDescriptor>& descriptors);

}  // namespace zyl::backbone::local

#endif
