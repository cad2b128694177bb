#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "chanlink/client/ClientGetManager.h"
#include "chanlink/client/ClientLoginManager.h"
#include "chanlink/client/ClientPushSubscriptionManager.h"
#include "chanlink/client/ClientSetManager.h"
#include "chanlink/client/ClientSubscriptionManager.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/endpoint/Session.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/messages/ErrorResponse.h"

// The application's one entry into the client: a Session that also holds the
// managers speaking the protocol. Build it with ClientSessionBuilder.
//
// Nothing happens outside the application's calls: tick() moves bytes and
// calls the application's receivers from inside. Results arrive as outcomes
// delivered to receivers, never as exceptions. Requests other than the login
// wait until a login has succeeded. Not thread-safe: call it from one thread.
class ClientSession : public Session {
public:
    // Normally called by ClientSessionBuilder, which wires the parts.
    ClientSession(std::shared_ptr<Transport> transport,
                  std::shared_ptr<ClientGetManager> getManager,
                  std::shared_ptr<ClientSetManager> setManager,
                  std::shared_ptr<ClientSubscriptionManager> subscriptionManager,
                  std::shared_ptr<ClientPushSubscriptionManager> pushSubscriptionManager,
                  std::shared_ptr<ClientLoginManager> loginManager,
                  std::shared_ptr<Dispatcher<LoginOutcome>> loginOutcomeDispatcher,
                  std::shared_ptr<Dispatcher<ErrorResponse>> errorResponseDispatcher,
                  std::shared_ptr<IncomingEndPoint> incomingEndPoint,
                  std::shared_ptr<OutgoingEndPoint> outgoingEndPoint);
    // Yields an entirely empty session sharing nothing with the source, as
    // existing code expects of a copy. Its operations do nothing;
    // blockingLogin() returns Failure and blockingGet() a failed outcome
    // with reason 131 at once, instead of waiting forever.
    ClientSession(const ClientSession& other);
    ClientSession& operator=(const ClientSession&) = delete;
    ~ClientSession() override;

    // One step: the transport's tick, one read (delivering whatever it
    // completes), one write of what is queued.
    void tick() override;
    // Reports every outstanding set with reason 131, then drops the partly
    // received frame, the unsent bytes and the queued requests. The
    // connection, the login state, pending gets and subscriptions stay.
    void reset() override;

    LoginOutcome getLoginState() const;
    // Sends a login request (past the waiting requests). False, with state
    // Failure, when the username or password is 256 bytes or longer.
    bool initiateLogin();
    // initiateLogin(), then ticks until the login is no longer Pending.
    // There is no time limit: over a peer that never answers it does not
    // return. Returns Success, Failure or TooManyConnections. Between ticks
    // it sleeps on the socket (SessionWaiter), so a wait over TCP costs next
    // to no processor time; the ticks themselves are those of a plain loop.
    LoginOutcome blockingLogin();
    // Asks for the channel and ticks until the first outcome for it arrives
    // (a value, an error from the device, or a subscription update that comes
    // first). There is no time limit, and it starts no login: before a login
    // has succeeded the request waits, and so does the call. Sleeps on the
    // socket between ticks, as blockingLogin() does.
    GetOutcome blockingGet(unsigned int channelId);

    // Timed forms of the blocking calls, driven by SessionWaiter. Each ticks
    // until its answer is there or the timeout has passed, and returns within
    // the timeout plus one tick whatever the peer does; it is empty when the
    // time ran out. A timeout of 0 (or less) makes exactly one tick;
    // std::chrono::milliseconds::max() waits without limit. Between ticks
    // they sleep on the socket. waiter gives the clock and the bounds on what
    // a device can make the session hold (SessionWaiter): when one closes the
    // connection, the get or set is answered with ReasonCode::FrameTooLarge
    // or ReasonCode::DeviceNotReading; a login is empty, and
    // waiter.lastResult() tells why.

    // initiateLogin(), then ticks until the login is no longer Pending.
    // Failure at once, without a tick, when no request can be built. On
    // timeout the login stays Pending, and a late answer still counts.
    std::optional<LoginOutcome> blockingLogin(std::chrono::milliseconds timeout,
                                              const SessionWaiter& waiter = SessionWaiter());
    // As blockingGet(channelId), but on timeout the call stops waiting
    // (cancelRequest), so repeated timeouts leave nothing behind in the get
    // manager and a late answer reaches nobody. Like every request, one made
    // before a login has succeeded is held until it does, and then still
    // leaves.
    std::optional<GetOutcome> blockingGet(unsigned int channelId, std::chrono::milliseconds timeout,
                                          const SessionWaiter& waiter = SessionWaiter());
    // setChannel(), then ticks until the set's outcome arrives. On timeout
    // the set is cancelled (cancelSet): if it was still queued behind another
    // set it is never sent; if it was sent, the device may yet apply it, and
    // later sets wait behind it until its answer comes or reset() is called,
    // as they would behind any unanswered set. Empty therefore means "not
    // known whether the device applied it".
    std::optional<SetOutcome> blockingSet(unsigned int channelId,
                                          const std::vector<unsigned char>& data,
                                          std::chrono::milliseconds timeout,
                                          const SessionWaiter& waiter = SessionWaiter());

    // Waits, without spinning, until the next tick has something to do or
    // the timeout has passed; call tick() afterwards either way
    // (SessionWaiter::waitForActivity with the system clock). Over a socket
    // it waits until readable, or writable while connecting or while output
    // waits; true when it is. A socket transport without a connection can
    // bring nothing, so the timeout is waited out and the result is false.
    // A transport without a socket (in-memory) returns true at once.
    bool waitForActivity(std::chrono::milliseconds timeout);
    // For applications that run their own event loop: the transport's socket
    // and the poll events (POLLIN; POLLOUT while connecting or while output
    // waits) on which a tick has work to do. Watch it and call tick() when it
    // is ready. fd is -1, which poll skips, when there is nothing to watch
    // (no socket, or no connection); then tick on the loop's own schedule.
    // revents is 0. Such a loop bounds what a device can make the session
    // hold by calling SessionWaiter::enforceBounds() after each tick.
    pollfd getPollDescriptor() const;

    // The get manager's cancelRequest: receiver stops waiting for the
    // channel and gets no outcome for it.
    void cancelRequest(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // The set manager's cancelSet: the sets reporting to receiver are given
    // up on without being reported (see ClientSetManager::cancelSet).
    void cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver);

    // Asks for the channel once; receiver gets the first outcome for it.
    void requestChannel(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Writes the channel; receiver (may be empty) gets exactly one SetOutcome.
    // Sets go out one at a time, in call order.
    void setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                    std::shared_ptr<Receiver<SetOutcome>> receiver);
    // Values of the channel as the device sends them, until removed. Kept
    // and renewed across logins.
    void addSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removeSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Values the device pushes on its own (log push), by channel.
    void addPushSubscription(unsigned int channelId,
                             std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removePushSubscription(unsigned int channelId,
                                std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Every channel value the device sends, whatever its channel, until
    // removed: the device's log push is switched on as by a push
    // subscription (held under PushedValueRelay::HoldingChannel), and each
    // value of every get response reaches receiver. Values answering gets
    // and subscriptions look the same on the wire and arrive here too.
    void addPushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver);
    void removePushReceiver(std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Every login state change, after the session's own receivers.
    void addLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver);
    void removeLoginOutcomeReceiver(std::shared_ptr<Receiver<LoginOutcome>> receiver);
    // Every error response, whatever request caused it. Stays for the
    // session's life.
    void addErrorResponseReceiver(std::shared_ptr<Receiver<ErrorResponse>> receiver);

private:
    std::shared_ptr<ClientGetManager> getManager;
    std::shared_ptr<ClientSetManager> setManager;
    std::shared_ptr<ClientSubscriptionManager> subscriptionManager;
    std::shared_ptr<ClientPushSubscriptionManager> pushSubscriptionManager;
    std::shared_ptr<ClientLoginManager> loginManager;
    std::shared_ptr<Dispatcher<LoginOutcome>> loginOutcomeDispatcher;
    std::shared_ptr<Dispatcher<ErrorResponse>> errorResponseDispatcher;
};
