#pragma once

#include <poll.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "chanlink/client/ClientClock.h"
#include "chanlink/endpoint/Session.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/server/ChannelStore.h"
#include "chanlink/server/DeviceEvent.h"
#include "chanlink/server/DeviceSettings.h"
#include "chanlink/server/MessageBacklog.h"
#include "chanlink/transport/Transport.h"
#include "chanlink/wire/Decoder.h"

class GetRequest;
class LoginRequest;
class LogPushRequest;
class SetRequest;
class SubscriptionRequest;

// The device's end of one client connection: its own decoder, encoder,
// request production chain, endpoints and Session over the transport, and
// what the client has done on it (logged in, subscriptions, log push).
// DeviceServer makes one per accepted connection; the rules it applies are
// those of DeviceServer.
class DeviceConnection {
public:
    // Decides a login: Success, Failure or TooManyConnections. Asked after
    // this connection's earlier login, if any, has ended.
    using LoginCheck = std::function<LoginResponse::Result(const std::string& username,
                                                           const std::string& password)>;

    // Bytes read from the socket per tick, and the pending-buffer fill level
    // at which the outgoing endpoint stops framing more messages.
    static constexpr unsigned int ReadChunkBytes = 4096;
    static constexpr int WriteChunkBytes = 16384;

    // None of transport, store and loginCheck may be empty; events may be.
    // Only the limits of settings are used here. Any transport serves: TCP,
    // TLS, a capturing wrapper or an in-memory one. The clock times the
    // login timeout and the back-off after failed logins; an empty one is
    // the system clock.
    DeviceConnection(unsigned int id, std::shared_ptr<Transport> transport,
                     std::shared_ptr<ChannelStore> store, const DeviceSettings& settings,
                     LoginCheck loginCheck, std::shared_ptr<Receiver<DeviceEvent>> events,
                     std::shared_ptr<ClientClock> clock = nullptr);
    ~DeviceConnection();

    DeviceConnection(const DeviceConnection&) = delete;
    DeviceConnection& operator=(const DeviceConnection&) = delete;

    // One read (answering every request it completes) and one write, then the
    // input limit is checked: a connection holding more undecoded bytes than
    // settings.maxInputBytes is dropped.
    void tick();
    // Writes what is queued for as long as the socket takes it, then checks
    // the backlog limit: a connection leaving more than
    // settings.maxBacklogBytes unread is dropped.
    void flush();
    // Queues response, a GetResponse carrying the new value of channelId,
    // when this connection is logged in and subscribed to the channel or has
    // log push on. Sent once even when both hold.
    void pushChange(unsigned int channelId, const std::shared_ptr<const Message>& response);
    // Closes the transport. Nothing is reported.
    void close();
    // Closes the transport and keeps reason as the drop reason.
    void drop(std::string reason);
    // Applies what is due by the clock's now: answers a held login (and what
    // came after it) once its delay has passed, and drops a connection that
    // has gone without a login for longer than the login timeout.
    void checkTimers();
    // When checkTimers() has work next, or nothing when it has none.
    std::optional<ClientClock::TimePoint> nextTimer() const;
    // A login waits out its back-off delay; the connection reads nothing
    // meanwhile.
    bool holdingLogin() const { return holdUntil.has_value(); }

    unsigned int getId() const { return id; }
    // Not dropped, and the transport has neither failed nor closed (a TLS
    // transport still in its handshake is open).
    bool isOpen() const;
    // The transport failed to set up (a TLS handshake that failed, say)
    // rather than being closed.
    bool failed() const;
    bool loggedIn() const { return loggedInNow; }
    bool logPushOn() const { return logPush; }
    bool subscribedTo(unsigned int channelId) const { return subscriptions.count(channelId) != 0; }
    std::size_t subscriptionCount() const { return subscriptions.size(); }
    // Messages queued or framed bytes not yet taken by the socket.
    bool wantsToWrite() const;
    // Framed bytes not yet written plus payload bytes of queued messages.
    std::size_t backlogBytes() const;
    // Bytes received and not yet cut into frames.
    std::size_t undecodedBytes() const { return decoder->bufferedBytes(); }
    // What to wait on before the next tick: the transport's socket with
    // POLLIN, and POLLOUT while output waits; fd -1 once closed or for a
    // transport without a socket (tick it on every round).
    pollfd getPollDescriptor() const;
    // Input is waiting inside the transport, or it has no socket to wait on:
    // tick without waiting for the socket.
    bool readyWithoutWaiting() const;
    // Why the device dropped the connection; empty when it did not.
    const std::string& getDropReason() const { return dropReason; }

private:
    void onLogin(const LoginRequest& request);
    void onGet(const GetRequest& request);
    void onSet(const SetRequest& request);
    void onSubscription(const SubscriptionRequest& request);
    void onLogPush(const LogPushRequest& request);

    void endLogin();
    // Hands a request on, or keeps it while a login waits out its delay.
    void admit(const Message& request);
    void release();
    void send(const std::shared_ptr<const Message>& message);
    void report(DeviceEvent::Kind kind, std::string detail);

    unsigned int id;
    std::shared_ptr<Transport> transport;
    std::shared_ptr<ChannelStore> store;
    std::size_t maxInputBytes;
    std::size_t maxBacklogBytes;
    LoginCheck loginCheck;
    std::shared_ptr<Receiver<DeviceEvent>> events;
    std::shared_ptr<ClientClock> clock;
    std::chrono::milliseconds loginTimeout;
    std::chrono::milliseconds loginDelay;
    std::chrono::milliseconds maxLoginDelay;
    unsigned int maxFailedLogins;

    std::shared_ptr<Decoder> decoder;
    std::shared_ptr<MessageProductionChain> chain;
    std::shared_ptr<MessageBacklog> backlog;
    std::shared_ptr<OutgoingEndPoint> outgoing;
    std::shared_ptr<Dispatcher<Message>> requests;
    std::unique_ptr<Session> session;

    bool loggedInNow = false;
    bool logPush = false;
    std::set<unsigned int> subscriptions;
    // While a set is answered, pushes to this connection wait here so that
    // the set response goes out before the change it caused.
    bool answeringSet = false;
    std::vector<std::shared_ptr<const Message>> heldPushes;
    std::string dropReason;

    // When the connection is dropped unless it logs in by then; nothing
    // while logged in.
    std::optional<ClientClock::TimePoint> loginDeadline;
    unsigned int failedLogins = 0;
    // Logins before this time wait for it; the requests from such a login on
    // are kept, in order, until it is answered.
    ClientClock::TimePoint loginAllowedAt;
    std::optional<ClientClock::TimePoint> holdUntil;
    std::vector<std::vector<unsigned char>> heldRequests;
};
