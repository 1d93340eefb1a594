#pragma once
// File-system queries on wide paths (converted to UTF-8 for the system calls).
#include <cstdint>

#include "basepool/cbstring.h"

namespace VnFileSystem {
// Size in bytes; 0 for a missing file or one that cannot be queried.
uint64_t GetFileSize(const CStringW& path);
// True when the path names an existing file or folder.
bool Exists(const CStringW& path);
// Everything up to and including the last '/' or '\\'; "" when there is none.
CStringW GetFolder(const CStringW& path);
// Expands %NAME%, $NAME and ${NAME} of defined variables; unknown ones stay as they stand.
CStringW InterpretEnvironment(const CStringW& path);
// The UTF-8 form of a wide path, as handed to the system.
CStringA ToNative(const CStringW& path);
} // namespace VnFileSystem
