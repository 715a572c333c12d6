#include "system/posix/SpareDescriptors.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include "Diagnostics.h"
#include "platform/system/SystemError.h"

namespace zyl::backbone::system::posix {

SpareDescriptors::SpareDescriptors() : m_original(eventfd(0, EFD_CLOEXEC)) {
    if (!m_original.IsOpen() || !Refill()) {
        Fatal(platform::SystemError::Last("cannot set descriptors aside").Text(),
              "backbone/system/posix/SpareDescriptors_posix", __LINE__);
    }
}

bool SpareDescriptors::GiveUpOne() {
    if (m_count == 0 && !Refill()) {
        return false;
    }
    m_spares[--m_count].Close();
    return true;
}

bool SpareDescriptors::Refill() {
    while (m_count < m_spares.size()) {
        m_spares[m_count] = FileDescriptor(fcntl(m_original.Get(), F_DUPFD_CLOEXEC, 0));
        if (!m_spares[m_count].IsOpen()) {
            return false;
        }
        ++m_count;
    }
    return true;
}

}  // namespace zyl::backbone::system::posix
