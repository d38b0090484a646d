#include "app/platform/QuitOnSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace norrow {
namespace {

// The write end of the self-pipe: writing one byte is all a signal handler may safely do.
int signalWriteEnd = -1;

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto ignored = ::write(signalWriteEnd, &byte, 1);
}

} // namespace

void quitOnSignals() {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) return;
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    signalWriteEnd = ends[1];
    auto* notifier =
        new QSocketNotifier(ends[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [readEnd = ends[0]] {
        char drained[16];
        while (::read(readEnd, drained, sizeof drained) > 0) {
        }
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace norrow
