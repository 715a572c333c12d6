#ifndef ZYLMSGPATHEXPLORER_H
#define ZYLMSGPATHEXPLORER_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Forms the paths of an analysis job's files, and finds out whether two processes share a directory.
///
/// Every function takes a base directory, a job directory relative to it and a file name relative to that;
/// each may be empty. ZYLBasUtlFilePath defines the path rules (absolute names, `.` and `..`, trailing
/// separators, empty names).
///
/// Sharing: one process creates a stamp, an empty file with the name of the file and ".stamp" appended;
/// another looks for it under its own directories; then one of them removes it. The stamp file is the only
/// state, and it is not protected against two processes that stamp or remove at once.
class ZYLMSGMODULES_EXPORT ZYLMsgPathExplorer {
  public:
    /// The absolute path of `fileName`, taken relative to `jobDir`, itself taken relative to `baseDir`.
    /// Symbolic links are not resolved, and nothing on the path needs to exist.
    static ZYLString FormPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Creates or empties the stamp file. Always returns 0; if it fails, one line on standard error names
    /// the file and the reason.
    static int StampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Whether the stamp file exists. False also if its directory is missing.
    static bool IsSharedPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Deletes the stamp file if it exists. Always returns 0, even if that fails.
    static int RemoveStampFile(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

  private:
    static ZYLString FormStampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);
};

#endif
