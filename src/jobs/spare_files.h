// Spare files: the data files and journals of finished jobs are kept, emptied, under names of the
// service's own ("vxspare.<n>") and renamed into place for the next received job instead of
// being deleted and created again. Creating a file costs the file system an inode; on ext4
// without a journal that search passes every inode freed in the last minutes, so a host that
// prints thousands of small jobs spent most of each job's CPU time there. A rename costs none.
#pragma once

#include <cstdio>

namespace vx {

// Gives path a spare file if one is there, renamed into place only when the name is free, and
// opens it for binary writing (empty). Null when there is no spare, or when the name is in use
// (*taken set) or the spare cannot be used; the caller then creates the file itself.
FILE* TakeSpareFile(const char* path, bool* taken);

// A new file of a received job, for binary writing: a spare renamed into place when there is one,
// else a file created; either way only when the name is free (*taken set when it is in use).
FILE* NewJobFile(const char* path, bool* taken);

// The same, for a file that is only made, not written (a journal's reservation): 0, or -1 with
// *taken set when the name is in use.
int NewEmptyJobFile(const char* path, bool* taken);

// Moves a finished job's file out of its name, empties it and keeps it as a spare. False when it
// is not kept (the pool is full, or the file cannot be moved): the caller removes it.
bool KeepAsSpare(const char* path);

// A job's file is done with: kept as a spare, else removed. True when its name is free.
bool DisposeJobFile(const char* path);

// Start: the spare files an earlier run left in the temporary directory become this run's (an
// orderly stop leaves them for the next start, so that a restart creates no files either).
void TakeOverSpareFiles();

}  // namespace vx
