#pragma once

#include <csignal>
#include <memory>

class QSocketNotifier;

namespace jorvane::ui {

// Turns SIGINT, SIGTERM and SIGHUP into a quit of the Qt event loop. The
// signals are blocked before any thread starts (blockAll()), so every thread
// inherits the mask and they all arrive at the descriptor.
class QuitSignals {
public:
    // Blocks the quit signals for this thread and the threads it starts from
    // now on; returns them for the constructor.
    static sigset_t blockAll();

    // Needs the QApplication.
    explicit QuitSignals(const sigset_t& set);
    ~QuitSignals();
    QuitSignals(const QuitSignals&) = delete;
    QuitSignals& operator=(const QuitSignals&) = delete;

private:
    int fd_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace jorvane::ui
