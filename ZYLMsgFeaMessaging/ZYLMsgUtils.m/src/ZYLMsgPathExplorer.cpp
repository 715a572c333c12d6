#include "ZYLMsgPathExplorer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZYLBasFileOps.h"
#include "ZYLBasUtlFilePath.h"
#include "cow_String.h"

namespace {

ZYLBasUtlFilePath PathOf(const ZYLString& name, const ZYLString& directory) {
    return ZYLBasUtlFilePath(cow_String(name.GetUTF8()), cow_String(directory.GetUTF8()));
}

ZYLString AbsolutePath(const ZYLString& name, const ZYLString& directory) {
    return ZYLString::BuildFromUTF8(PathOf(name, directory).AbsolutePathName().CStr());
}

}  // namespace

// The exported functions take their strings by value; a copy only increments a count.
// NOLINTBEGIN(performance-unnecessary-value-param)

ZYLString ZYLMsgPathExplorer::FormPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName) {
    return AbsolutePath(fileName, AbsolutePath(jobDir, baseDir));
}

ZYLString ZYLMsgPathExplorer::FormStampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName) {
    fileName.Append(ZYLString::BuildFromUTF8(".stamp"));
    return FormPath(baseDir, jobDir, fileName);
}

int ZYLMsgPathExplorer::StampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName) {
    const ZYLString path = FormStampPath(baseDir, jobDir, fileName);
    if (FILE* stamp = ZYLBasFileOps::Fopen(path, "w")) {
        fclose(stamp);
    } else {
        fprintf(stderr, "ZYLMsgPathExplorer: cannot create the stamp file %s: %s\n", path.GetUTF8(),
                strerror(errno));
    }
    return 0;
}

bool ZYLMsgPathExplorer::IsSharedPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName) {
    return PathOf(FormStampPath(baseDir, jobDir, fileName), ZYLString()).Exists();
}

int ZYLMsgPathExplorer::RemoveStampFile(ZYLString baseDir, ZYLString jobDir, ZYLString fileName) {
    const ZYLString path = FormStampPath(baseDir, jobDir, fileName);
    if (PathOf(path, ZYLString()).Exists()) {
        remove(path.GetUTF8());
    }
    return 0;
}

// NOLINTEND(performance-unnecessary-value-param)
