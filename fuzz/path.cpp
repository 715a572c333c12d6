// Base directory, job directory and file name, separated by line ends, as a path.
#include <string>

#include "Fuzz.h"
#include "ZYLMsgPathExplorer.h"

namespace {

ZYLString NextLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : line.size());
    return ZYLString::BuildFromUTF8(std::string(line).c_str());
}

bool IsNormal(const std::string& path) {
    if (path == "/") {
        return true;
    }
    const std::string closed = path + "/";
    return closed.front() == '/' && closed.find("//") == std::string::npos &&
           closed.find("/./") == std::string::npos && closed.find("/../") == std::string::npos;
}

}  // namespace

void RunInput(std::string_view input) {
    const ZYLString base = NextLine(input);
    const ZYLString job = NextLine(input);
    const ZYLString file = NextLine(input);
    const ZYLString path = ZYLMsgPathExplorer::FormPath(base, job, file);
    Require(IsNormal(path.GetUTF8()), "a path is absolute and normal");
    Require(ZYLMsgPathExplorer::FormPath(job, base, path) == path, "an absolute name stands for itself");
}
