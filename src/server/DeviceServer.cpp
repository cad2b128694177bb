#include "chanlink/server/DeviceServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/transport/TransportPoll.h"

namespace {

// The most connections taken from the listener in one poll, so a burst of
// connects cannot hold up the clients already served.
constexpr int MaxAcceptsPerPoll = 16;
// The listener's own backlog admits one waiting connection; clients that
// connect together (a test, a demo, several tools) should not have to wait
// for a retransmitted connect.
constexpr int ListenBacklog = 16;

std::string peerAddress(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return "an unknown address";
    }
    char host[NI_MAXHOST] = {};
    char service[NI_MAXSERV] = {};
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&address), size, host, sizeof host, service,
                      sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "an unknown address";
    }
    std::string text = host;
    // IPv4 clients reach the dual-stack listener as mapped IPv6 addresses.
    const std::string mapped = "::ffff:";
    if (text.compare(0, mapped.size(), mapped) == 0 && text.find('.') != std::string::npos) {
        return text.substr(mapped.size()) + ":" + service;
    }
    return text.find(':') == std::string::npos ? text + ":" + service : "[" + text + "]:" + service;
}

int toPollTimeout(std::chrono::milliseconds timeout) {
    return timeout.count() < 0 ? -1
                               : static_cast<int>(std::min<long long>(timeout.count(), INT_MAX));
}

}  // namespace

DeviceServer::DeviceServer(std::shared_ptr<ChannelStore> store, DeviceSettings settings)
    : store(std::move(store)), settings(std::move(settings)), clock(ClientClock::system()) {
    changeReceiver = makeReceiver<ChannelValue>([this](const ChannelValue& v) { onChange(v); });
    // Connections report through this, so a receiver set later hears them too.
    eventForwarder = makeReceiver<DeviceEvent>([this](const DeviceEvent& event) {
        if (events) {
            events->receive(event);
        }
    });
    this->store->addChangeReceiver(changeReceiver);
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_NONBLOCK | O_CLOEXEC) == 0) {
        wakeRead = pipeEnds[0];
        wakeWrite = pipeEnds[1];
    }
}

DeviceServer::~DeviceServer() {
    store->removeChangeReceiver(changeReceiver);
    connections.clear();
    if (wakeRead >= 0) {
        ::close(wakeRead);
        ::close(wakeWrite);
    }
}

bool DeviceServer::listen(const std::string& service, const std::string& host) {
    // The listener is an IPv6 socket that also takes IPv4 peers; it finds an
    // IPv4 address only in its mapped IPv6 form.
    in_addr ipv4{};
    const bool isIpv4 = ::inet_pton(AF_INET, host.c_str(), &ipv4) == 1;
    listener =
        std::make_unique<TCPServerTransportBuilder>(service, isIpv4 ? "::ffff:" + host : host);
    if (!listener->isListening()) {
        listener.reset();
        return false;
    }
    ::listen(listener->getSocket(), ListenBacklog);
    return true;
}

bool DeviceServer::isListening() const {
    return listener && listener->isListening();
}

std::string DeviceServer::getListeningService() const {
    return isListening() ? listener->getListeningService() : std::string();
}

unsigned int DeviceServer::adopt(std::shared_ptr<Transport> transport) {
    if (!transport) {
        return 0;
    }
    const unsigned int id = ++lastId;
    const std::string peer = peerAddress(TransportPoll::of(*transport).descriptor);
    const std::size_t pending = static_cast<std::size_t>(
        std::count_if(connections.begin(), connections.end(),
                      [](const auto& c) { return c->isOpen() && !c->loggedIn(); }));
    connections.push_back(std::make_shared<DeviceConnection>(
        id, std::move(transport), store, settings,
        [this](const std::string& username, const std::string& password) {
            return checkLogin(username, password);
        },
        eventForwarder, clock));
    report(DeviceEvent::Opened, id, peer);
    if (settings.maxPending != 0 && pending >= settings.maxPending) {
        // Reported as dropped when removed, at the end of this poll.
        connections.back()->drop("at once: " + std::to_string(pending) +
                                 " connections without a login (limit " +
                                 std::to_string(settings.maxPending) + ")");
    }
    return id;
}

void DeviceServer::setClock(std::shared_ptr<ClientClock> newClock) {
    clock = newClock ? std::move(newClock) : ClientClock::system();
}

std::size_t DeviceServer::poll(std::chrono::milliseconds timeout) {
    flushAll();

    waitList.clear();
    waitList.push_back({wakeRead, POLLIN, 0});
    waitList.push_back({isListening() ? listener->getSocket() : -1, POLLIN, 0});
    for (const auto& connection : connections) {
        waitList.push_back(connection->getPollDescriptor());
    }
    // Entries of -1 are skipped by poll; a connection that closed since the
    // last poll is removed below without a wait, and one holding input (or
    // without a socket) is ticked without one.
    const bool noWait = std::any_of(connections.begin(), connections.end(), [](const auto& c) {
        return !c->isOpen() || c->readyWithoutWaiting();
    });
    const int ready = ::poll(waitList.data(), waitList.size(), noWait ? 0 : waitTimeout(timeout));

    if (ready >= 0) {
        if (waitList[0].revents != 0) {
            drainWake();
        }
        // Only the connections that were waited on: those adopted below come
        // after them in the list.
        const std::size_t waited = waitList.size() - 2;
        for (std::size_t i = 0; i < waited; ++i) {
            const short revents = waitList[i + 2].revents;
            if (connections[i]->holdingLogin() && (revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
                // A held connection reads nothing, so it would never see the
                // reset that poll reports, and every poll would return at
                // once until the hold ends. The peer is gone: so is it.
                connections[i]->close();
            } else if (revents != 0 || connections[i]->readyWithoutWaiting()) {
                connections[i]->tick();
            }
        }
        if (waitList[1].revents != 0) {
            acceptPending();
        }
    }
    checkTimers();
    flushAll();
    removeClosed();
    return connections.size();
}

void DeviceServer::setAcceptWrapper(TransportWrapper wrapper) {
    acceptWrapper = std::move(wrapper);
}

void DeviceServer::setEventReceiver(std::shared_ptr<Receiver<DeviceEvent>> receiver) {
    events = std::move(receiver);
}

void DeviceServer::shutdown() {
    for (const auto& connection : connections) {
        connection->close();
    }
    for (const auto& connection : std::exchange(connections, {})) {
        report(DeviceEvent::Closed, connection->getId(), "by the device");
    }
    listener.reset();
}

std::size_t DeviceServer::loggedInCount() const {
    return static_cast<std::size_t>(
        std::count_if(connections.begin(), connections.end(),
                      [](const auto& c) { return c->isOpen() && c->loggedIn(); }));
}

std::shared_ptr<const DeviceConnection> DeviceServer::findConnection(unsigned int id) const {
    for (const auto& connection : connections) {
        if (connection->getId() == id) {
            return connection;
        }
    }
    return nullptr;
}

void DeviceServer::onChange(const ChannelValue& value) {
    // One message for every connection that wants it, made only if one does.
    std::shared_ptr<const Message> response;
    for (const auto& connection : connections) {
        if (!connection->loggedIn() ||
            (!connection->logPushOn() && !connection->subscribedTo(value.getChannelId()))) {
            continue;
        }
        if (!response) {
            response = GetResponse::newInstance({std::make_shared<const ChannelValue>(value)});
            if (!response) {
                return;  // a value the wire cannot carry
            }
        }
        connection->pushChange(value.getChannelId(), response);
    }
}

LoginResponse::Result DeviceServer::checkLogin(const std::string& username,
                                               const std::string& password) {
    // Compared in full even when the username is wrong, so the time taken
    // does not tell which of the two was.
    unsigned char difference = 0;
    const auto compare = [&difference](const std::string& given, const std::string& expected) {
        difference |= given.size() == expected.size() ? 0 : 1;
        for (std::size_t i = 0; i < given.size(); ++i) {
            difference |=
                static_cast<unsigned char>(given[i] ^ (i < expected.size() ? expected[i] : 0));
        }
    };
    compare(username, settings.username);
    compare(password, settings.password);
    if (difference != 0) {
        return LoginResponse::Failure;
    }
    if (loggedInCount() >= settings.maxLoggedIn) {
        return LoginResponse::TooManyConnections;
    }
    return LoginResponse::Success;
}

void DeviceServer::acceptPending() {
    for (int i = 0; i < MaxAcceptsPerPoll; ++i) {
        std::shared_ptr<TCPTransport> accepted = listener->accept(0, 0);
        if (!accepted) {
            return;
        }
        std::shared_ptr<Transport> transport = accepted;
        if (settings.wrapConnection) {
            transport = settings.wrapConnection(accepted);
        }
        if (!transport) {
            accepted->close();  // the wrapper refused it
            continue;
        }
        // TLS first, so that a capture records the protocol's bytes.
        adopt(acceptWrapper ? acceptWrapper(std::move(transport)) : std::move(transport));
    }
}

void DeviceServer::checkTimers() {
    for (const auto& connection : connections) {
        connection->checkTimers();
    }
}

int DeviceServer::waitTimeout(std::chrono::milliseconds timeout) const {
    int result = toPollTimeout(timeout);
    const ClientClock::TimePoint now = clock->now();
    for (const auto& connection : connections) {
        if (const auto next = connection->nextTimer()) {
            const int due = toPollTimeout(ClientClock::remainingUntil(now, *next));
            result = result < 0 ? due : std::min(result, due);
        }
    }
    return result;
}

void DeviceServer::flushAll() {
    for (const auto& connection : connections) {
        connection->flush();
    }
}

void DeviceServer::removeClosed() {
    const auto closed = std::stable_partition(connections.begin(), connections.end(),
                                              [](const auto& c) { return c->isOpen(); });
    std::vector<std::shared_ptr<DeviceConnection>> gone(closed, connections.end());
    connections.erase(closed, connections.end());
    for (const auto& connection : gone) {
        const bool failed = connection->failed();
        connection->close();
        if (connection->getDropReason().empty()) {
            report(DeviceEvent::Closed, connection->getId(),
                   failed ? "before it was set up (failed handshake)" : "by the peer");
        } else {
            report(DeviceEvent::Dropped, connection->getId(), connection->getDropReason());
        }
    }
}

void DeviceServer::drainWake() {
    char buffer[64];
    while (::read(wakeRead, buffer, sizeof buffer) > 0) {
    }
}

void DeviceServer::report(DeviceEvent::Kind kind, unsigned int id, std::string detail) {
    eventForwarder->receive(DeviceEvent(kind, id, std::move(detail)));
}
