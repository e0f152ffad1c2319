// The command line's view of the settings table: which names "-oi", "-os" and "-dk" accept, and
// which names "-t" resets.
#pragma once

namespace vx {

class Czelprsrv;

// True when the command line may set or delete the name: every name beginning with "Auth" (the
// authorised senders), every name containing "COL" (case-sensitive), and the settings the table
// marks as known.
bool IsKnownOption(const char* name);

// Deletes every setting the table marks for reset under the settings key, in table order,
// ignoring failures. Authorised senders and per-printer values stay.
void ResetOptions(Czelprsrv& settings);

}  // namespace vx
