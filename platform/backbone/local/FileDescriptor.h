#ifndef ZYL_BACKBONE_LOCAL_FILEDESCRIPTOR_H
#define ZYL_BACKBONE_LOCAL_FILEDESCRIPTOR_H

#include <utility>

namespace zyl::backbone::local {

/// Owns one open descriptor of the operating system; -1 is none.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
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

  private:
    int m_descriptor = -1;
};

}  // namespace zyl::backbone::local

#endif
