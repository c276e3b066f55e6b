#include "platform/linux/CrashReport.h"

#include <execinfo.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <initializer_list>

namespace jorvane {
namespace {

// Writes with write() and backtrace_symbols_fd() only: nothing that
// allocates, inside a signal handler.
void reportCrash(int signal) {
    const char* name = strsignal(signal);
    (void)!write(STDERR_FILENO, "jorvane: fatal signal: ", 23);
    (void)!write(STDERR_FILENO, name, std::strlen(name));
    (void)!write(STDERR_FILENO, "\n", 1);
    void* frames[64];
    backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

}  // namespace

void reportCrashes() {
    // Loads the unwinder now: not from inside the handler.
    void* frame[1];
    backtrace(frame, 1);
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(signal, reportCrash);
}

}  // namespace jorvane
