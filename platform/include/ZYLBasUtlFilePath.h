#ifndef ZYLBASUTLFILEPATH_H
#define ZYLBASUTLFILEPATH_H

#include "ZYLPlatformExport.h"
#include "atr_StringBase.h"

/// The absolute path of a name taken relative to a directory, both UTF-8. It is formed once, at construction:
///
/// - An absolute name stands for itself, whatever the directory.
/// - A relative name is resolved against the directory; a relative directory, and a relative name without a
/// directory,
///   against the current directory of the process.
/// - An empty name is the directory itself; with both empty it is the current directory.
/// - The result is made normal as text alone: "." vanishes, ".." takes the component before it away (and
/// vanishes at the
///   root), separators in a row count as one. Symbolic links are not resolved, nothing need exist.
/// - Trailing separators are dropped; the root keeps its own.
/// - Letter case is kept, and nothing ("~", variables, patterns) is expanded.
///
/// Where the process's current directory is needed and no longer exists, there is no absolute path: the name
/// is empty and nothing exists there. Raises std::bad_alloc when memory is exhausted.
class ZYLPLATFORM_EXPORT ZYLBasUtlFilePath {
  public:
    ZYLBasUtlFilePath(const atr_StringBase& name, const atr_StringBase& directory);

    /// The absolute path with the separators of the platform.
    const atr_StringBase& AbsolutePathName() const { return m_absolutePathName; }
    /// Whether something (of any kind) can be found at the path now; a dangling symbolic link is nothing.
    bool Exists() const;

    /// Where `path` lies in `directory`, both absolute and formed by this class: the rest of `path` behind
    /// the directory, "." for the directory itself, null where it lies outside. It is compared as text and
    /// points into `path`.
    static const char* NameBeneath(const char* directory, const char* path);

  private:
    atr_StringBase m_absolutePathName;
};

#endif
