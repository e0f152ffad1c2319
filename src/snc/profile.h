// The library's profile: the [vorlixsnc] section of the profile file ("ZELLPD.INI", "WIN.INI")
// in the service's base directory, naming the server's certificate, its private key and the CA
// that signs the senders' certificates (PEM files).
#pragma once

#include "base/fileops.h"

namespace vx::snc {

struct Profile {
    char file[kMaxPath];         // the profile file read
    char certificate[kMaxPath];  // the paths below are absolute or start at the base directory
    char key[kMaxPath];
    char ca[kMaxPath];
};

// Reads the section's keys "certificate", "key" and "ca" (names and section in any case; ';' and
// '#' begin comments). 0, or -1 with the reason traced, naming the file, when the file cannot be
// read, has no [vorlixsnc] section or lacks one of the keys.
int ReadProfile(const char* baseDirectory, const char* profileName, Profile* profile);

}  // namespace vx::snc
