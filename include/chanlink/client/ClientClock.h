#pragma once

#include <chrono>
#include <memory>

// Where the client's timed operations get the time and do their waiting:
// deadlines of the timed blocking calls, the reconnect back-off, and the
// waits on a socket between ticks. The library's own clock is
// ClientClock::system(); tests hand in a clock of their own so that time passes
// only when they say so, and nothing in them sleeps.
class ClientClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~ClientClock();

    // The current time; never goes backwards.
    virtual TimePoint now() = 0;
    // Waits until the descriptor reports one of the poll events (POLLIN,
    // POLLOUT; errors and hang-ups always count) or the timeout has passed,
    // whichever comes first. A descriptor below 0 waits out the timeout
    // (a timeout of 0 or less returns at once). True when the descriptor is
    // ready; false on timeout, on an interrupted wait, or for no descriptor.
    virtual bool waitFor(int descriptor, short events, std::chrono::milliseconds timeout) = 0;

    // The monotonic system clock (std::chrono::steady_clock), waiting with
    // poll. One instance, shared.
    static std::shared_ptr<ClientClock> system();

    // now + timeout, saturated at the latest representable time, so that
    // std::chrono::milliseconds::max() means "no limit" without overflow.
    // A negative timeout counts as 0.
    static TimePoint deadlineAfter(TimePoint now, std::chrono::milliseconds timeout);
    // Milliseconds from now until deadline, rounded up so that a wait for
    // them does not end before the deadline; 0 once it has passed.
    static std::chrono::milliseconds remainingUntil(TimePoint now, TimePoint deadline);

protected:
    ClientClock() = default;
    ClientClock(const ClientClock&) = default;
    ClientClock& operator=(const ClientClock&) = default;
};
