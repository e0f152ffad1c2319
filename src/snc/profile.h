// The library's profile: the [vorlixsnc] section of the profile file ("ZELLPD.INI", "WIN.INI")
// in the service's base directory, naming the server's certificate, its private key and the CA
// that signs the senders' certificates. On Linux certificate and key are PEM files (an empty key:
// the key is in the certificate file); on Windows the certificate is a PFX file holding its
// private key and the key is that file's password (empty: none). The CA is a PEM file on both.
#pragma once

#include "base/fileops.h"

namespace vx::snc {

struct Profile {
    char file[kMaxPath];         // the profile file read
    char certificate[kMaxPath];  // the paths below are absolute or start at the base directory
    char key[kMaxPath];          // empty when the profile's key is empty
    char keyText[kMaxPath];      // the key as written (the PFX password on Windows)
    char ca[kMaxPath];
};

// Reads the section's keys "certificate", "key" and "ca" (names and section in any case; ';' and
// '#' begin comments). 0, or -1 with the reason traced, naming the file, when the file cannot be
// read, has no [vorlixsnc] section, names no certificate or CA, or has no key line (an empty
// "key =" line is kept: see key above).
int ReadProfile(const char* baseDirectory, const char* profileName, Profile* profile);

}  // namespace vx::snc
