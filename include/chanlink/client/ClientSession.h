#pragma once

#include <memory>
#include <vector>

#include "chanlink/client/ClientGetManager.h"
#include "chanlink/client/ClientLoginManager.h"
#include "chanlink/client/ClientPushSubscriptionManager.h"
#include "chanlink/client/ClientSetManager.h"
#include "chanlink/client/ClientSubscriptionManager.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
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
    // return. Returns Success, Failure or TooManyConnections.
    LoginOutcome blockingLogin();
    // Asks for the channel and ticks until the first outcome for it arrives
    // (a value, an error from the device, or a subscription update that comes
    // first). There is no time limit, and it starts no login: before a login
    // has succeeded the request waits, and so does the call.
    GetOutcome blockingGet(unsigned int channelId);

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
