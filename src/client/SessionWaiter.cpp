#include "chanlink/client/SessionWaiter.h"

#include "chanlink/endpoint/Session.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/transport/TransportPoll.h"

SessionWaiter::SessionWaiter(std::shared_ptr<ClientClock> clock)
    : clock(clock ? std::move(clock) : ClientClock::system()) {}

SessionWaiter::Result SessionWaiter::run(const std::function<void()>& tick,
                                         const std::function<void(std::chrono::milliseconds)>& wait,
                                         const std::function<bool()>& done,
                                         std::chrono::milliseconds timeout) const {
    last = Result::Done;
    if (done()) {
        return last;
    }
    const ClientClock::TimePoint deadline = ClientClock::deadlineAfter(clock->now(), timeout);
    for (;;) {
        tick();
        if (done()) {
            return last = Result::Done;
        }
        if (stopCheck && stopCheck()) {
            return last = Result::Stopped;
        }
        const std::chrono::milliseconds remaining =
            ClientClock::remainingUntil(clock->now(), deadline);
        if (remaining.count() == 0) {
            return last = Result::TimedOut;
        }
        wait(remaining);
    }
}

SessionWaiter::Result SessionWaiter::tickUntil(Session& session, const std::function<bool()>& done,
                                               std::chrono::milliseconds timeout) const {
    // Set by the tick step, which is the only place that can see them happen.
    Result early = Result::Done;
    const auto tick = [&] {
        session.tick();
        early = enforceBounds(session);
        if (early == Result::Done && endOnConnectionLoss && session.getTransport() &&
            TransportPoll::of(*session.getTransport()).ended()) {
            early = Result::ConnectionEnded;
        }
    };
    const auto wait = [&](std::chrono::milliseconds remaining) {
        waitForActivity(session, remaining);
    };
    const Result result = run(
        tick, wait, [&] { return early != Result::Done || done(); }, timeout);
    return last = early != Result::Done && !done() ? early : result;
}

SessionWaiter::Result SessionWaiter::enforceBounds(Session& session) const {
    if (exceedsUndecodedLimit(session, maxUndecodedBytes)) {
        return Result::FrameTooLarge;
    }
    const auto& outgoing = session.getOutgoingEndPoint();
    if (maxQueuedRequests == 0 || !outgoing || outgoing->queuedMessages() <= maxQueuedRequests) {
        return Result::Done;
    }
    if (session.getTransport()) {
        TransportPoll::close(*session.getTransport());
    }
    // None of them can leave now.
    outgoing->reset();
    return Result::DeviceNotReading;
}

std::optional<unsigned char> SessionWaiter::closingReason(Result result) {
    if (result == Result::FrameTooLarge) {
        return ReasonCode::FrameTooLarge;
    }
    if (result == Result::DeviceNotReading) {
        return ReasonCode::DeviceNotReading;
    }
    return std::nullopt;
}

std::string SessionWaiter::describeClosing(Result result) const {
    if (result == Result::FrameTooLarge) {
        return describeFrameTooLarge(maxUndecodedBytes);
    }
    if (result == Result::DeviceNotReading) {
        return "the device stopped reading requests (more than " +
               std::to_string(maxQueuedRequests) + " waiting); connection closed";
    }
    return {};
}

bool SessionWaiter::waitForActivity(const Session& session,
                                    std::chrono::milliseconds timeout) const {
    if (!session.getTransport()) {
        return true;
    }
    const TransportPoll poll = TransportPoll::of(*session.getTransport());
    if (!poll.hasSocket || poll.inputBuffered) {
        return true;
    }
    const pollfd entry = pollDescriptor(session);
    if (entry.fd < 0) {
        clock->waitFor(-1, 0, timeout);
        return false;
    }
    return clock->waitFor(entry.fd, entry.events, timeout);
}

pollfd SessionWaiter::pollDescriptor(const Session& session) {
    if (!session.getTransport()) {
        return pollfd{-1, 0, 0};
    }
    return TransportPoll::of(*session.getTransport()).entry(session.hasOutputWaiting());
}

bool SessionWaiter::exceedsUndecodedLimit(Session& session, std::size_t limit) {
    const auto& incoming = session.getIncomingEndPoint();
    if (limit == 0 || !incoming || incoming->undecodedBytes() <= limit) {
        return false;
    }
    if (session.getTransport()) {
        TransportPoll::close(*session.getTransport());
    }
    // The open frame can never complete now; let its bytes go.
    incoming->reset();
    return true;
}

std::string SessionWaiter::describeFrameTooLarge(std::size_t limit) {
    std::string size = std::to_string(limit) + " bytes";
    if (limit % (1024 * 1024) == 0) {
        size = std::to_string(limit / (1024 * 1024)) + " MiB";
    } else if (limit % 1024 == 0) {
        size = std::to_string(limit / 1024) + " KiB";
    }
    return "the device sent a frame larger than " + size + "; connection closed";
}
