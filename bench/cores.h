#pragma once

namespace bench {

/// Client and server on cores of their own: what they take from each other otherwise, and what moving between cores
/// costs, differs from run to run by more than what is measured. Both keep the calling thread, and the threads that it
/// starts from then on, on one of the cores that it is allowed; on a machine with a single core nothing changes.
void useFirstCore();
void useLastCore();

/// Back to all that are allowed: for those who have several threads.
void useAllCores();

} // namespace bench
