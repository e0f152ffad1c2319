// The program's entry point behind main().
#pragma once

namespace vx {

// Runs InitVorlix and the action of the first argument (or the service path). Returns the
// process's exit code: 0 from every path here; only the restart paths end the process with 1.
int VorlixMain(int argc, char** argv);

}  // namespace vx
