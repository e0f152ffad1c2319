// The states of the enhanced mode's jobs, as JobStatusQueryEx reports them: waiting, printing,
// done or error. A final state is reported once and then forgotten.
#pragma once

#include <string>

namespace zel {

void SetJobState(const std::u16string& jobId, const std::u16string& printer, int state,
                 const std::u16string& errorText);

// 0 and the job's state and error text; a final state (done, error) is removed as it is
// reported. 1 when the job is not known. An empty printer matches any printer.
int TakeJobState(const std::u16string& jobId, const std::u16string& printer, int* state,
                 std::u16string* errorText);

// Drops every state (the enhanced mode ends).
void ForgetJobStates();

}  // namespace zel
