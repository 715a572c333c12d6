#ifndef ZYL_BACKBONE_LOCAL_DESCRIPTORS_H
#define ZYL_BACKBONE_LOCAL_DESCRIPTORS_H

#include <sys/socket.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "FileDescriptor.h"

/// What a local socket does besides carrying bytes: open descriptors travel with them, and the kernel tells
/// who is at the other end. No call waits; errors are left in errno.

namespace zyl::backbone::local {

/// No message of this library comes with more.
constexpr int kMostDescriptors = 3;

/// Whether this process can open so many descriptors more.
bool CanOpen(int count);

/// The process and user at the other end of a connection, as the kernel saw them when it was made.
ucred PeerOf(const FileDescriptor& socket);

/// Sends bytes with descriptors, which stay open here. Gives the number of bytes sent, -1 on failure.
std::ptrdiff_t SendWithDescriptors(int socket, const std::string& bytes, std::span<const int> descriptors);

/// Receives bytes into `room` and appends the descriptors that came with them: all of them up to
/// kMostDescriptors, and at least one more than that when more came. Gives the number of bytes, 0 at the end,
/// -1 on failure.
std::ptrdiff_t ReceiveWithDescriptors(int socket, std::span<char> room,
                                      std::vector<FileDescriptor>& descriptors);

}  // namespace zyl::backbone::local

#endif
