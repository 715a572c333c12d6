#ifndef ZYLMSGPATHEXPLORER_H
#define ZYLMSGPATHEXPLORER_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// Forms the paths of an analysis job's files, and finds out whether two processes share a directory.
///
/// Every function takes a base directory, a job directory inside it and a file name inside that; each may be
/// empty. The path rules (absolute names, `.` and `..`, trailing separators, empty names) are those of
/// ZYLBasUtlFilePath.
///
/// Sharing: one process creates a stamp, an empty file named after the file with ".stamp" appended; another
/// looks for it under its own directories; then the stamp is removed. The library itself calls none of the
/// three. No state is kept but the stamp file, and nothing guards that one against two processes that stamp
/// or remove at once.
class ZYLMSGMODULES_EXPORT ZYLMsgPathExplorer {
  public:
    /// The absolute path of `fileName`, taken relative to `jobDir`, itself taken relative to `baseDir`.
    /// Symbolic links are not resolved, and nothing on the path needs to exist.
    static ZYLString FormPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Creates the stamp file, or empties it. Returns 0, also when the stamp cannot be created; then one line
    /// on standard error names the file and the reason.
    static int StampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Whether the stamp file is there. False too where its directory is missing.
    static bool IsSharedPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

    /// Deletes the stamp file if it is there. Returns 0, also when it could not be deleted.
    static int RemoveStampFile(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);

  private:
    static ZYLString FormStampPath(ZYLString baseDir, ZYLString jobDir, ZYLString fileName);
};

#endif
