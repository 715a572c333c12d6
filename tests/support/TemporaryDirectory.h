#ifndef ZYL_TESTS_TEMPORARYDIRECTORY_H
#define ZYL_TESTS_TEMPORARYDIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

/// A fresh private directory (mode 0700) that is removed with everything in it when the object goes.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zyltest.XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory like " + pattern);
        }
        m_path = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

  private:
    std::filesystem::path m_path;
};

#endif
