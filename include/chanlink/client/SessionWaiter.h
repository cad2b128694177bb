#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "chanlink/client/ClientClock.h"

class Session;

// The library's one tick-and-wait loop, used by the timed blocking calls,
// ReconnectingClient and the tools: tick, check, then sleep on the socket
// until the next tick has work, until the awaited answer is there, the time
// is up, or the loop is told to stop.
//
// It also bounds what a device can make a client hold. After each tick:
// - the bytes held undecoded: a device that opens a frame and never ends it
//   would make the session buffer without limit. Above the limit (16 MiB
//   unless changed) the connection is closed and the wait ends with
//   FrameTooLarge.
// - the requests waiting to be framed: a device that stops reading leaves
//   them in the outgoing queue, and every timed call that gives up adds one.
//   Above the limit (65536 unless changed) the connection is closed and the
//   wait ends with DeviceNotReading.
// An application driving a bare session with its own loop gets the same
// bounds by calling enforceBounds() after each tick.
class SessionWaiter {
public:
    enum class Result {
        Done,              // the awaited condition holds
        TimedOut,          // the time ran out first
        Stopped,           // the stop check asked to end the wait
        ConnectionEnded,   // the connection failed or closed (when asked to watch for it)
        FrameTooLarge,     // the device sent more undecoded bytes than the limit; closed
        DeviceNotReading,  // more requests waited unsent than the limit; closed
    };

    static constexpr std::size_t DefaultMaxUndecodedBytes = 16 * 1024 * 1024;
    // Far more than an application asks for between two ticks, far less
    // than a client can hold: each waiting request is a few dozen bytes.
    static constexpr std::size_t DefaultMaxQueuedRequests = 65536;

    // clock: where the time comes from and waits happen; the system clock
    // when empty.
    explicit SessionWaiter(std::shared_ptr<ClientClock> clock = nullptr);

    // Most undecoded bytes a session may hold; 0 switches the bound off.
    void setMaxUndecodedBytes(std::size_t limit) { maxUndecodedBytes = limit; }
    std::size_t getMaxUndecodedBytes() const { return maxUndecodedBytes; }
    // Most requests that may wait to be framed after a tick; 0 switches the
    // bound off.
    void setMaxQueuedRequests(std::size_t limit) { maxQueuedRequests = limit; }
    std::size_t getMaxQueuedRequests() const { return maxQueuedRequests; }
    // Asked after every tick; true ends the wait with Stopped (a signal, a
    // cancelled operation).
    void setStopCheck(std::function<bool()> check) { stopCheck = std::move(check); }
    // End the wait with ConnectionEnded as soon as the session's transport
    // has failed or closed, rather than waiting out the time. Off by
    // default: the timed calls wait out their time whatever the peer does.
    void setEndOnConnectionLoss(bool end) { endOnConnectionLoss = end; }
    const std::shared_ptr<ClientClock>& getClock() const { return clock; }

    // The loop itself, for anything that ticks: done() is checked first,
    // then tick(), done() again, the stop check, the deadline, and then
    // wait(remaining) sleeps until there is work or the time is up. A
    // timeout of 0 or less makes exactly one tick;
    // std::chrono::milliseconds::max() waits without limit.
    Result run(const std::function<void()>& tick,
               const std::function<void(std::chrono::milliseconds)>& wait,
               const std::function<bool()>& done, std::chrono::milliseconds timeout) const;

    // run() over a session: its tick, the undecoded bound after each tick,
    // and waitForActivity between ticks.
    Result tickUntil(Session& session, const std::function<bool()>& done,
                     std::chrono::milliseconds timeout) const;
    // How the last run() or tickUntil() of this waiter ended (Done before
    // the first): why a timed call that returned nothing gave up.
    Result lastResult() const { return last; }

    // Both bounds over a session, for a loop of the application's own:
    // FrameTooLarge or DeviceNotReading, after closing the transport and
    // dropping what can never be used now, when one is exceeded; Done
    // otherwise.
    Result enforceBounds(Session& session) const;
    // The message for a result that closed the connection: "the device sent
    // a frame larger than 16 MiB; connection closed" or "the device stopped
    // reading requests (more than 65536 waiting); connection closed", with
    // this waiter's limits; empty for other results.
    std::string describeClosing(Result result) const;
    // The reason code that answers a request whose wait ended with result:
    // ReasonCode::FrameTooLarge or DeviceNotReading for a bound that closed
    // the connection, none otherwise.
    static std::optional<unsigned char> closingReason(Result result);

    // Sleeps until the session's next tick has something to do or the
    // timeout has passed; true when there is work. Over a socket it waits
    // for the events of pollDescriptor(); a transport without a socket, or
    // one holding input already, returns true at once; a socket transport
    // without a connection can bring nothing, so the timeout is waited out
    // and the result is false.
    bool waitForActivity(const Session& session, std::chrono::milliseconds timeout) const;

    // The session's socket and the poll events on which a tick has work:
    // POLLOUT while connecting or while output waits, POLLIN once
    // connected. fd is -1 (poll skips it) when there is nothing to watch.
    static pollfd pollDescriptor(const Session& session);
    // True, after closing the session's transport, when the session holds
    // more than limit undecoded bytes (limit 0: never).
    static bool exceedsUndecodedLimit(Session& session, std::size_t limit);
    // "the device sent a frame larger than 16 MiB; connection closed", for
    // the limit given.
    static std::string describeFrameTooLarge(std::size_t limit);

private:
    std::shared_ptr<ClientClock> clock;
    std::size_t maxUndecodedBytes = DefaultMaxUndecodedBytes;
    std::size_t maxQueuedRequests = DefaultMaxQueuedRequests;
    std::function<bool()> stopCheck;
    bool endOnConnectionLoss = false;
    // Written by the waits, which are const: a waiter is passed as a const
    // reference to the timed calls, and its caller reads it afterwards.
    mutable Result last = Result::Done;
};
