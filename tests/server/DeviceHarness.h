#pragma once

// A DeviceServer on 127.0.0.1 with raw clients, all driven from the test's
// one thread: every wait polls the server with no timeout and pumps the
// clients, bounded by eventually()'s deadline.

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/chanlink.h"
#include "support/Bytes.h"
#include "support/Eventually.h"
#include "support/RawClient.h"
#include "support/RecordingReceiver.h"

namespace testing_support {

// Makes closing the client's transport reset the connection instead of ending it.
inline void resetOnClose(RawClient& client) {
    const linger reset{1, 0};
    ::setsockopt(client.tcp->getSocket(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

class DeviceHarness {
public:
    // Channel 1: 4 bytes, writable, 00 00 00 00; channel 2: 1 byte,
    // read-only, 10. Account admin / secret.
    explicit DeviceHarness(std::size_t maxLoggedIn = 4)
        : store(std::make_shared<MemoryChannelStore>()),
          events(std::make_shared<RecordingReceiver<DeviceEvent>>()) {
        store->addChannel(1, {0, 0, 0, 0}, false, "setpoint");
        store->addChannel(2, {0x10}, true, "status");
        settings.username = "admin";
        settings.password = "secret";
        settings.maxLoggedIn = maxLoggedIn;
        start();
    }

    void start() {
        server = std::make_unique<DeviceServer>(store, settings);
        server->setEventReceiver(events);
        server->listen("0", "127.0.0.1");
    }

    // A client the server has accepted, or an empty pointer.
    std::unique_ptr<RawClient> connect() {
        auto client = std::make_unique<RawClient>("127.0.0.1", server->getListeningService());
        const std::size_t before = opened();
        const auto ready = [&] { return client->tcp->state() == ConnectionOutcome::Connected; };
        if (!pumpUntil([&] { return ready() && opened() > before; }, {client.get()})) {
            return nullptr;
        }
        return client;
    }

    // A client logged in as admin, or an empty pointer.
    std::unique_ptr<RawClient> loggedIn() {
        auto client = connect();
        return client && login(*client) == "0F 01" ? std::move(client) : nullptr;
    }

    // Polls the server and pumps the clients until done() holds.
    template <typename Done>
    bool pumpUntil(Done done, std::vector<RawClient*> clients) {
        return eventually([&] {
            server->poll(std::chrono::milliseconds(0));
            for (RawClient* client : clients) {
                client->pump();
            }
            return done();
        });
    }

    // Sends message and returns everything the client receives up to and
    // including the answer to an empty get sent right behind it (which the
    // server answers with 0B 00 00 once logged in, and with nothing before);
    // that answer itself is left out. An empty message sends nothing, which
    // collects what the device pushed on its own. Before a login, waits for
    // count messages instead.
    std::vector<std::string> exchange(RawClient& client,
                                      const std::shared_ptr<const Message>& message,
                                      std::size_t count = 0) {
        client.send(message);
        if (count > 0) {
            pumpUntil([&] { return client.received.size() >= count; }, {&client});
            return client.take();
        }
        client.send(GetRequest::newInstance({}));
        const std::string marker = "0B 00 00";
        pumpUntil([&] { return !client.received.empty() && hex(client.received.back()) == marker; },
                  {&client});
        std::vector<std::string> got = client.take();
        if (!got.empty() && got.back() == marker) {
            got.pop_back();
        }
        return got;
    }

    // The login response's payload as hex ("0F 01" on success).
    std::string login(RawClient& client, const std::string& username = "admin",
                      const std::string& password = "secret") {
        const std::vector<std::string> got =
            exchange(client, LoginRequest::newInstance(username, password), 1);
        return got.empty() ? std::string() : got.front();
    }

    std::size_t opened() const { return countEvents(DeviceEvent::Opened); }
    std::size_t countEvents(DeviceEvent::Kind kind) const {
        const auto& all = events->received();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [kind](const DeviceEvent& e) { return e.getKind() == kind; }));
    }

    std::shared_ptr<MemoryChannelStore> store;
    DeviceSettings settings;
    std::shared_ptr<RecordingReceiver<DeviceEvent>> events;
    std::unique_ptr<DeviceServer> server;
};

}  // namespace testing_support
