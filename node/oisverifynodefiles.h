// Files the node writes into its own folder (report, text logs, image dumps), opened so that the
// camera's request thread never blocks and nothing outside the folder is touched: a FIFO or
// other special file, or a symbolic link, at the file's name is refused like a file that cannot
// be created.
#ifndef ZELK_NODE_OISVERIFYNODEFILES_H
#define ZELK_NODE_OISVERIFYNODEFILES_H

#include <stdio.h>

#include "chitypes.h"

// Opens pPath (already mapped to the host's file system) for writing as fopen(pPath, "wb") would;
// NULL when it cannot be created or is not a regular file.
FILE* OpenNodeOutputFile(const CHAR* pPath);

// Whether pPath (mapped) is absent or a regular file that is not a link: the check made before a
// file is handed to the host's own open helper.
BOOL IsPlainFileOrAbsent(const CHAR* pPath);

#endif // ZELK_NODE_OISVERIFYNODEFILES_H
