#ifndef ZYLBASUTLFILEPATH_H
#define ZYLBASUTLFILEPATH_H

#include "ZYLPlatformExport.h"
#include "atr_StringBase.h"

/// The absolute path of a name relative to a directory, both UTF-8. The constructor forms it once:
///
/// - An absolute name stands for itself, whatever the directory.
/// - A relative name is resolved against the directory. A relative directory, and a relative name without
///   a directory, are resolved against the current directory of the process.
/// - An empty name means the directory itself; if both are empty, the current directory.
/// - Normalisation is lexical: "." vanishes, ".." removes the component before it (and vanishes at the
///   root), and repeated separators count as one. Symbolic links are not resolved, and nothing need exist.
/// - Trailing separators are dropped, except the root's own.
/// - Letter case is kept, and nothing ("~", variables, patterns) is expanded.
///
/// If the path depends on the process's current directory and that directory no longer exists, the
/// absolute path is empty and Exists() is false. Raises std::bad_alloc when memory is exhausted.
class ZYLPLATFORM_EXPORT ZYLBasUtlFilePath {
  public:
    ZYLBasUtlFilePath(const atr_StringBase& name, const atr_StringBase& directory);

    /// The absolute path with the separators of the platform.
    const atr_StringBase& AbsolutePathName() const { return m_absolutePathName; }
    /// Whether the path leads to a file of any kind now. False for a dangling symbolic link.
    bool Exists() const;

    /// Returns the part of `path` beneath `directory`: "." for the directory itself, null for a path
    /// outside of it. Both are absolute paths formed by this class and are compared as text. The result
    /// points into `path`, or to a static string.
    static const char* NameBeneath(const char* directory, const char* path);

  private:
    atr_StringBase m_absolutePathName;
};

#endif
