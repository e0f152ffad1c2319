// The run under the service manager: no argument, or an argument that is not an option.
#pragma once

namespace vx {

// Hands the process to the service manager and returns when the service has stopped.
void RunServicePath();

}  // namespace vx
