#ifndef ZYL_PLATFORM_SYSTEM_FILEDESCRIPTOR_H
#define ZYL_PLATFORM_SYSTEM_FILEDESCRIPTOR_H

#include <utility>

namespace zyl::platform {

/// Owns one open descriptor of the operating system; -1 is none. Closing it leaves errno as it was.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    /// A number that is too high for CloseAllInChild is closed at once, as if there had been none (EMFILE).
    explicit FileDescriptor(int descriptor);
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        Close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        return *this;
    }
    ~FileDescriptor() { Close(); }

    int Get() const { return m_descriptor; }
    bool IsOpen() const { return m_descriptor >= 0; }
    void Close();
    /// Gives the descriptor to the caller, who closes it.
    int Release();

    /// In the child of a fork, which owns none of them: closes every descriptor that an object of this class
    /// has open, so that the parent's links and names end with the parent. Nothing but this is safe there,
    /// whatever the parent's other threads were doing; no object may be used or destroyed afterwards. Each
    /// shared library that is linked with this class closes its own descriptors only.
    static void CloseAllInChild();

  private:
    int m_descriptor = -1;
};

}  // namespace zyl::platform

#endif
