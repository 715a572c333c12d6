#include "ZYLBasUtlFilePath.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace {

std::filesystem::path PathFromUTF8(const atr_StringBase& text) {
    return std::u8string(reinterpret_cast<const char8_t*>(text.CStr()));
}

atr_StringBase UTF8FromPath(const std::filesystem::path& path) {
    return reinterpret_cast<const char*>(path.u8string().c_str());
}

}  // namespace

ZYLBasUtlFilePath::ZYLBasUtlFilePath(const atr_StringBase& name, const atr_StringBase& directory) {
    std::error_code noCurrentDirectory;
    const std::filesystem::path joined = PathFromUTF8(directory) / PathFromUTF8(name);
    const std::filesystem::path base =
        joined.is_absolute() ? std::filesystem::path() : std::filesystem::current_path(noCurrentDirectory);
    if (noCurrentDirectory) {
        return;
    }
    std::filesystem::path normal = (base / joined).lexically_normal();
    if (!normal.has_filename() && normal != normal.root_path()) {
        normal = normal.parent_path();
    }
    // Normalisation keeps a root that is written with several separators.
    const std::filesystem::path root = normal.root_name() += std::filesystem::path::preferred_separator;
    m_absolutePathName = UTF8FromPath(root / normal.relative_path());
}

bool ZYLBasUtlFilePath::Exists() const {
    std::error_code unreachable;
    return std::filesystem::exists(PathFromUTF8(m_absolutePathName), unreachable);
}

const char* ZYLBasUtlFilePath::NameBeneath(const char* directory, const char* path) {
    constexpr char kSeparator = static_cast<char>(std::filesystem::path::preferred_separator);
    const std::string_view outer = directory;
    std::string_view rest = path;
    if (!rest.starts_with(outer)) {
        return nullptr;
    }
    rest.remove_prefix(outer.size());
    if (rest.empty()) {
        return ".";
    }
    if (rest.starts_with(kSeparator)) {
        return rest.data() + 1;
    }
    return outer.ends_with(kSeparator) ? rest.data() : nullptr;
}
