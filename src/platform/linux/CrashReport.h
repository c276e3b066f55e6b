#pragma once

namespace jorvane {

// From now on a crash (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT) writes its
// stack to standard error, the log, before the default action ends the
// process. Call first thing in main, before any thread starts.
void reportCrashes();

}  // namespace jorvane
