#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/client/ClientClock.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/ChannelValue.h"
#include "chanlink/server/ChannelStore.h"
#include "chanlink/server/DeviceConnection.h"
#include "chanlink/server/DeviceEvent.h"
#include "chanlink/server/DeviceSettings.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "chanlink/transport/TCPTransport.h"

// The device side of the protocol: serves any number of client connections
// from one thread over an application's ChannelStore.
//
//     auto store = std::make_shared<MemoryChannelStore>();
//     store->addChannel(1, {0, 0, 0, 0}, false);
//     DeviceServer server(store, settings);
//     server.listen("0", "");
//     while (running) server.poll(std::chrono::milliseconds(-1));
//
// Rules, per connection:
// - Login: result 1 on the configured username and password, 0 otherwise, 2
//   when settings.maxLoggedIn connections are already logged in. A login
//   ends the connection's earlier login, its subscriptions and log push.
// - Before a successful login, every other request is answered with an
//   ErrorResponse for its opcode and ReasonCode::NotLoggedIn (one per
//   channel id for a get; with the channel id for a set).
// - Get: one GetResponse with the values of the known channels, in request
//   order, then one ErrorResponse (opcode 0, ReasonCode::UnknownChannel)
//   per unknown channel.
// - Set: what ChannelStore::setValue answers: a SetResponse, or an
//   ErrorResponse (opcode 2) with its reason code.
// - Opcode 3 (subscription and unsubscription alike): subscribes, answers a
//   SubscriptionResponse with the ids and pushes the known channels' current
//   values in one GetResponse.
// - Log push on: every change of any channel is pushed.
// - Every change the store publishes goes, as a GetResponse of the one
//   value, to each logged-in connection subscribed to the channel or with
//   log push on.
// Frames that are not a well-formed request are ignored. A connection is
// dropped when it holds more undecoded input or leaves more output unread
// than the settings allow; the others go on undisturbed.
//
// Against hostile clients (limits in DeviceSettings): a connection without a
// login for settings.loginTimeout is dropped; after a failed login the
// connection's next login is answered only after a delay that doubles per
// failure, without holding up the others, and it is dropped after
// settings.maxFailedLogins failures; beyond settings.maxPending connections
// without a login, a new connection is dropped at once.
class DeviceServer {
public:
    // store may not be empty. The server hears of the store's changes from
    // construction to destruction.
    DeviceServer(std::shared_ptr<ChannelStore> store, DeviceSettings settings);
    ~DeviceServer();

    DeviceServer(const DeviceServer&) = delete;
    DeviceServer& operator=(const DeviceServer&) = delete;

    // Starts listening (see TCPServerTransportBuilder: empty host for every
    // local address, IPv4 and IPv6; service "0" for a free port), in place
    // of any earlier listener. An IPv4 address such as 127.0.0.1 is listened
    // on as its IPv4-mapped IPv6 address, which the dual-stack listener
    // needs. False when it cannot listen; the reason is then on standard
    // error.
    bool listen(const std::string& service, const std::string& host);
    bool isListening() const;
    // The port listened on, as decimal text; empty when not listening.
    std::string getListeningService() const;

    // Serves an already connected transport as if it had been accepted
    // (settings.wrapConnection is not applied). Returns the connection's id;
    // 0 (and nothing is served) for an empty pointer.
    unsigned int adopt(std::shared_ptr<Transport> transport);

    // Replaces each accepted connection's transport by what wrapper makes of
    // it (a capture, for example) before it is served. Empty: served as
    // accepted. The wrapper should give back a transport that forwards its
    // socket (a PollableTransport), or the connection cannot be waited on.
    using TransportWrapper = std::function<std::shared_ptr<Transport>(std::shared_ptr<Transport>)>;
    void setAcceptWrapper(TransportWrapper wrapper);

    // Waits until a socket is ready, the wake descriptor is written or the
    // timeout passes (a negative timeout waits without limit, 0 not at all),
    // then accepts new connections, answers what has arrived, writes what is
    // queued and removes the connections that have closed or were dropped.
    // Queued output is written before the wait, so values the application
    // published since the last poll leave at once. Returns the number of
    // open connections.
    std::size_t poll(std::chrono::milliseconds timeout);

    // A descriptor that ends a poll at once when any byte is written to it;
    // writing is safe from a signal handler. The server drains it. -1 when
    // it could not be made.
    int getWakeDescriptor() const { return wakeWrite; }

    // Where the login timeout and back-off take the time from, for the
    // connections accepted from now on; the system clock by default (an
    // empty pointer restores it). The poll waits themselves are real.
    void setClock(std::shared_ptr<ClientClock> clock);

    // Receives one DeviceEvent per connection event. May be empty.
    void setEventReceiver(std::shared_ptr<Receiver<DeviceEvent>> receiver);

    // Closes every connection, reporting each as closed, and stops listening.
    void shutdown();

    std::size_t connectionCount() const { return connections.size(); }
    std::size_t loggedInCount() const;
    // The connection with this id, or an empty pointer.
    std::shared_ptr<const DeviceConnection> findConnection(unsigned int id) const;

private:
    void onChange(const ChannelValue& value);
    LoginResponse::Result checkLogin(const std::string& username, const std::string& password);
    void acceptPending();
    void flushAll();
    void removeClosed();
    void checkTimers();
    // The timeout, shortened to the connections' next timer.
    int waitTimeout(std::chrono::milliseconds timeout) const;
    void drainWake();
    void report(DeviceEvent::Kind kind, unsigned int id, std::string detail);

    std::shared_ptr<ChannelStore> store;
    DeviceSettings settings;
    std::shared_ptr<ClientClock> clock;
    std::shared_ptr<Receiver<ChannelValue>> changeReceiver;
    std::shared_ptr<Receiver<DeviceEvent>> events;
    std::shared_ptr<Receiver<DeviceEvent>> eventForwarder;
    TransportWrapper acceptWrapper;
    std::unique_ptr<TCPServerTransportBuilder> listener;
    std::vector<std::shared_ptr<DeviceConnection>> connections;
    std::vector<pollfd> waitList;
    unsigned int lastId = 0;
    int wakeRead = -1;
    int wakeWrite = -1;
};
