// The built-in file printer: each job's data (all its copies) becomes a new file in the output
// directory, named after the job id with a number that makes it unique. An existing file is
// never overwritten, and a file appears under its final name only when it is complete.
#pragma once

#include <cstddef>
#include <cstdio>

namespace zel {

// A job id made safe as a file name: path separators, drive colons, control characters and
// the characters Windows forbids become "_", as does a leading dot; an empty id is "job".
void SafeFileName(const char* text, char* out, size_t size);

// Writes the job into outputDirectory (created when missing) as "<safe id>_<n><extension>",
// n from 1 up to the first free name. 0 and the file's path, or -1 with error set.
int WriteToFilePrinter(const char* outputDirectory, const char* jobId, const char* extension,
                       FILE* data, const char* fileName, int copies, char* path, size_t pathSize,
                       char* error, size_t errorSize);

}  // namespace zel
