// Directory paths built from several levels.
#pragma once

namespace vx {

// Creates a directory and every missing parent. 0 when the directory exists afterwards.
int MakeDirectoryPath(const char* path);

// True when the directory can be used for reading and writing, creating it when missing.
bool UsableDirectory(const char* path);

}  // namespace vx
