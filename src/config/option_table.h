// The option table of the command line: which names "-oi", "-os" and "-dk" accept, and which
// names "-t" resets.
#pragma once

namespace vx {

class Czelprsrv;

// True when the command line may set or delete the name: every name beginning with "Auth" (the
// authorised senders), every name containing "COL" (case-sensitive), and the known names.
bool IsKnownOption(const char* name);

// Deletes every value of the reset list under the settings key, in order, ignoring failures.
// Authorised senders and per-printer values stay.
void ResetOptions(Czelprsrv& settings);

// The two lists, for tests and the documentation of the options.
const char* const* KnownOptionNames(int* count);
const char* const* ResetOptionNames(int* count);

}  // namespace vx
