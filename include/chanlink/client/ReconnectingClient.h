#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "chanlink/client/ClientClock.h"
#include "chanlink/client/ClientSession.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/transport/Transport.h"

// Keeps a logged-in connection to one device alive. Over a transport from its
// factory (TCP by default; TLS, in-memory or a capturing wrapper as given)
// and a session from ClientSessionBuilder, it connects and logs in; when the
// connection closes, fails, or the login is refused, it drops the session and
// tries again after a back-off that starts at an initial delay and doubles
// after each failed attempt up to a maximum. Each attempt gets a fresh
// transport and session; once its login succeeds, every subscription and
// push subscription made through the client is added to it again, so they
// deliver again without any application code.
//
//     ReconnectingClient client("192.0.2.10", "4000", "user", "secret");
//     client.addSubscription(12, makeReceiver<GetOutcome>([](const GetOutcome& value) { ... }));
//     client.start();
//     for (;;) {
//         client.waitForActivity(std::chrono::seconds(1));
//         client.tick();
//     }
//
// Requests never wait forever. Gets and sets handed to a connection that is
// then lost are answered with a failed outcome carrying
// ReasonCode::ConnectionLost (the device may or may not have seen them);
// those made while there is no connection (waiting to reconnect, stopped)
// are answered on the next tick with ReasonCode::NotConnected (certainly not
// sent). Requests made while connecting or logging in wait for the login, as
// in a session.
//
// A device that breaks one of SessionWaiter's bounds (a frame larger than the
// undecoded limit, 16 MiB by default; more requests left unread than the
// queued limit, 65536) has its connection closed; outstanding requests are
// answered with ReasonCode::FrameTooLarge or DeviceNotReading, the client
// reconnects with its back-off, and getLastDropReason() says why.
//
// Like the session, it has no threads: tick() does everything and calls the
// application's receivers. Not thread-safe. Receivers may call any operation
// of the client, stop() included; the session being ticked stays alive until
// its tick has finished.
class ReconnectingClient {
public:
    // Where the client stands; reported to the state receivers on each change.
    enum State {
        Stopped = 0,             // not started, or stopped: no connection, no attempts
        Connecting = 1,          // a TCP connect is under way
        LoggingIn = 2,           // connected; the login request is out
        Ready = 3,               // logged in, subscriptions renewed
        WaitingToReconnect = 4,  // the last attempt failed or the connection was lost
    };

    // Makes the transport of one attempt, its connection already under way
    // (or complete, for an in-memory transport). An empty result counts as a
    // failed attempt.
    using TransportFactory = std::function<std::shared_ptr<Transport>()>;

    // host and service as for TCPClientTransport (name or address; service
    // name or decimal port). clock: time for the back-off, the attempt limit
    // and the timed calls; ClientClock::system() when empty. Nothing happens
    // before start().
    ReconnectingClient(const std::string& host, const std::string& service,
                       const std::string& username, const std::string& password,
                       std::shared_ptr<ClientClock> clock = nullptr);
    // The same over transports from factory, one per attempt.
    ReconnectingClient(TransportFactory factory, const std::string& username,
                       const std::string& password, std::shared_ptr<ClientClock> clock = nullptr);
    // A factory of TCPClientTransports to host and service, connecting.
    static TransportFactory tcpFactory(const std::string& host, const std::string& service);
    // stop(): outstanding requests are answered before the client goes.
    ~ReconnectingClient();

    ReconnectingClient(const ReconnectingClient&) = delete;
    ReconnectingClient& operator=(const ReconnectingClient&) = delete;

    // Delay before the first retry after a failure or loss, doubled after
    // each further failed attempt, never above maximum. A connection counts
    // as a failed attempt too unless it stayed Ready for at least maximum and
    // was not closed by a bound; one that did starts the delay over at
    // initial. Defaults 100 ms and 5 s. initial is at least 1 ms, maximum at
    // least initial.
    void setBackOff(std::chrono::milliseconds initial, std::chrono::milliseconds maximum);
    // Longest time from the start of an attempt to a successful login; an
    // attempt that takes longer (a connect or a login that is never
    // answered) is abandoned like a failed one. Default 10 s; at least 1 ms.
    void setAttemptTimeout(std::chrono::milliseconds timeout);
    // Most bytes a session may hold undecoded before its connection is
    // dropped (SessionWaiter::DefaultMaxUndecodedBytes by default); 0 means
    // no bound.
    void setMaxUndecodedBytes(std::size_t limit) { waiter.setMaxUndecodedBytes(limit); }
    // Most requests that may wait unsent after a tick before the connection
    // is dropped (SessionWaiter::DefaultMaxQueuedRequests); 0 means no bound.
    void setMaxQueuedRequests(std::size_t limit) { waiter.setMaxQueuedRequests(limit); }

    // From Stopped: the first attempt starts at once (name resolution
    // included, which takes as long as the system's resolver). Otherwise
    // nothing.
    void start();
    // Closes the connection, answers every outstanding get and set (see
    // above), reports Stopped and makes no further attempts until start().
    void stop();

    // One step: ticks the current session and moves the state on (login
    // after connecting, renewal after login, a new attempt when due).
    void tick();
    // Waits, without spinning, until the next tick has something to do or
    // the timeout has passed: the session's socket (ClientSession::
    // waitForActivity), or the time of the next attempt or of the current
    // attempt's limit, whichever comes first. True when the next tick has
    // work; false when the timeout passed first. Call tick() afterwards.
    bool waitForActivity(std::chrono::milliseconds timeout);
    // For applications with their own event loop: the current session's
    // poll entry (ClientSession::getPollDescriptor), fd -1 when there is no
    // connection to watch.
    pollfd getPollDescriptor() const;
    // How long an event loop may wait before the next tick even with no
    // activity on the descriptor: until the next attempt, or until the
    // current attempt's limit; 0 when due; milliseconds::max() when nothing
    // is timed (Ready, Stopped).
    std::chrono::milliseconds getTimeUntilDue() const;

    // Ticks until Ready or the timeout has passed (returns within the
    // timeout plus one tick); whether it is Ready. False at once when Stopped.
    bool waitUntilReady(std::chrono::milliseconds timeout);

    State getState() const { return state; }
    // "Stopped", "Connecting", "LoggingIn", "Ready", "WaitingToReconnect";
    // "Unknown" for any other value.
    static const char* stateName(State state);
    // The current session, empty while there is none (Stopped,
    // WaitingToReconnect). Subscriptions made on it directly are not renewed
    // after a reconnect; make them through the client.
    std::shared_ptr<ClientSession> getSession() const { return session; }
    // The back-off chosen at the last failure (0 before the first).
    std::chrono::milliseconds getRetryDelay() const { return retryDelay; }
    // Attempts failed in a row, counted at each loss (see setBackOff).
    unsigned int getFailedAttempts() const { return failedAttempts; }
    // Why the client itself last dropped a connection (a bound broken);
    // empty when it never did.
    const std::string& getLastDropReason() const { return lastDropReason; }
    // Channels that gets wait for, plus sets not answered yet.
    std::size_t outstanding() const;

    // Every change of state, in order, after it has happened.
    void addStateReceiver(std::shared_ptr<Receiver<State>> receiver);
    void removeStateReceiver(std::shared_ptr<Receiver<State>> receiver);
    // Every login outcome of every session (Pending, then Success, Failure or
    // TooManyConnections).
    void addLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver);
    void removeLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver);
    // Every error response of every session.
    void addErrorResponseReceiver(std::shared_ptr<Receiver<ErrorResponse>> receiver);
    void removeErrorResponseReceiver(std::shared_ptr<Receiver<ErrorResponse>> receiver);

    // Asks for the channel; receiver gets exactly one outcome: the first for
    // the channel, or a failure with ConnectionLost or NotConnected. An
    // empty receiver asks for nothing.
    void requestChannel(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // receiver stops waiting for the channel and gets no outcome for it.
    void cancelRequest(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Writes the channel; receiver (may be empty) gets exactly one
    // SetOutcome: the device's answer, or a failure with ConnectionLost or
    // NotConnected (or 1 when the data cannot be sent). Sets leave one at a
    // time, in call order.
    void setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                    std::shared_ptr<Receiver<SetOutcome>> receiver);
    // The sets reporting to receiver are given up on without a report, as
    // ClientSession::cancelSet does.
    void cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver);
    // Values of the channel as the device sends them, until removed; kept
    // across reconnects and renewed after each login.
    void addSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removeSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Values the device pushes on its own, by channel; kept across reconnects.
    void addPushSubscription(unsigned int channelId,
                             std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removePushSubscription(unsigned int channelId,
                                std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Every channel value the device sends, whatever the channel
    // (ClientSession::addPushReceiver); kept across reconnects.
    void addPushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removePushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver);

    // requestChannel(), then ticks until the outcome arrives or the timeout
    // has passed (within the timeout plus one tick); empty on timeout, when
    // the wait is cancelled as with cancelRequest. A lost connection answers
    // at once with ConnectionLost; with no connection, NotConnected.
    std::optional<GetOutcome> blockingGet(unsigned int channelId,
                                          std::chrono::milliseconds timeout);
    // setChannel(), then ticks until the outcome arrives or the timeout has
    // passed; empty on timeout, when the set is cancelled as with cancelSet
    // (see ClientSession::blockingSet for what that means).
    std::optional<SetOutcome> blockingSet(unsigned int channelId,
                                          const std::vector<unsigned char>& data,
                                          std::chrono::milliseconds timeout);

private:
    struct Registry;

    void beginAttempt();
    // New relays between the client and the new session; the old ones fall silent.
    void makeRelays();
    // Moves the state on after a tick of the session or a connect.
    void progress();
    void startLogin();
    void becomeReady();
    // Drops the session, answers what waited with reason and schedules the
    // next attempt.
    void connectionLost(unsigned char reason);
    // Takes the session and transport away, closes the transport and mutes
    // the session's relays; returns the session, for the caller to release.
    std::shared_ptr<ClientSession> dropSession();
    void setState(State newState);
    // Answers every outstanding get and set with reason.
    void failOutstanding(unsigned char reason);
    // Applies a subscription change to the current session when it is Ready.
    void whenReady(const std::function<void()>& change);
    bool tickUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

    TransportFactory factory;
    std::string username;
    std::string password;
    std::shared_ptr<ClientClock> clock;
    std::chrono::milliseconds initialBackOff{100};
    std::chrono::milliseconds maximumBackOff{5000};
    std::chrono::milliseconds attemptTimeout{10000};
    // The bounds on each session, and the loop of the timed calls.
    SessionWaiter waiter;
    std::string lastDropReason;

    State state = Stopped;
    std::shared_ptr<Transport> transport;
    std::shared_ptr<ClientSession> session;
    ClientClock::TimePoint attemptDeadline{};
    ClientClock::TimePoint retryAt{};
    ClientClock::TimePoint readySince{};
    std::chrono::milliseconds retryDelay{0};
    unsigned int failedAttempts = 0;
    // Requests were queued since the last tick: the next one sends them, so
    // waiting first would only delay them.
    bool workQueued = false;

    std::shared_ptr<Registry> registry;
    Dispatcher<State> stateReceivers;
    std::shared_ptr<Dispatcher<LoginOutcome>> loginReceivers;
    std::shared_ptr<Dispatcher<ErrorResponse>> errorReceivers;
};
