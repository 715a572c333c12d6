#include <unistd.h>

#include "FileDescriptor.h"

namespace zyl::backbone::local {

void FileDescriptor::Close() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
        m_descriptor = -1;
    }
}

}  // namespace zyl::backbone::local
