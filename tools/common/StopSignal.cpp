#include "StopSignal.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tool {

namespace {

volatile std::sig_atomic_t stopSignal = 0;
volatile std::sig_atomic_t wakeTarget = -1;

extern "C" void onStopSignal(int signal) {
    stopSignal = signal;
    // write() is safe in a signal handler; errno is kept for the code it interrupted.
    const int savedErrno = errno;
    const char byte = 1;
    if (wakeTarget >= 0) {
        [[maybe_unused]] const ssize_t written = ::write(wakeTarget, &byte, 1);
    }
    errno = savedErrno;
}

}  // namespace

void installStopHandlers(int wakeDescriptor) {
    wakeTarget = wakeDescriptor;
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool stopRequested() {
    return stopSignal != 0;
}

const char* stopSignalName() {
    if (stopSignal == 0) {
        return "";
    }
    return stopSignal == SIGINT ? "SIGINT" : "SIGTERM";
}

}  // namespace tool
