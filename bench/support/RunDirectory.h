#ifndef ZYL_BENCH_RUNDIRECTORY_H
#define ZYL_BENCH_RUNDIRECTORY_H

#include <fmt/core.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

/// A fresh private directory inside `parent`, removed with everything in it when the object goes.
class RunDirectory {
  public:
    explicit RunDirectory(const std::filesystem::path& parent) {
        m_path = parent / "zylbench.XXXXXX";
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error(fmt::format("cannot make a directory like {}", m_path));
        }
    }
    ~RunDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    RunDirectory(const RunDirectory&) = delete;
    RunDirectory& operator=(const RunDirectory&) = delete;

    const std::string& Path() const { return m_path; }

  private:
    std::string m_path;
};

/// One run of this project's backbone: the processes started while it lives meet there and nowhere else.
class BackboneRun : public RunDirectory {
  public:
    BackboneRun() : RunDirectory(std::filesystem::temp_directory_path()) {
        setenv("ZYL_BACKBONE_DIR", Path().c_str(), 1);
    }
};

#endif
