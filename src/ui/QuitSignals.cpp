#include "ui/QuitSignals.h"

#include <QApplication>
#include <QSocketNotifier>

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "util/Diagnostics.h"

namespace jorvane::ui {

sigset_t QuitSignals::blockAll() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return set;
}

QuitSignals::QuitSignals(const sigset_t& set) : fd_(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)) {
    if (fd_ < 0) return;
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
        signalfd_siginfo info{};
        while (read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
            log::inDomain(log::Info, "Jorvane", "signal %u: quitting", info.ssi_signo);
        QApplication::quit();
    });
}

QuitSignals::~QuitSignals() {
    notifier_.reset();
    if (fd_ >= 0) close(fd_);
}

}  // namespace jorvane::ui
