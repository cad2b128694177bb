#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "support/Bytes.h"
#include "support/ManualClock.h"
#include "support/ScriptedPeer.h"
#include "support/TransportPair.h"

namespace testing_support {

// A built client session on one end of an in-memory pair and a scripted device
// on the other. Unless `manual` is set, the device serves inside each client
// tick (the transport's tick hook) and each tick moves the clock by 1 ms, so
// blocking calls work without threads. Outcomes delivered to the receivers
// made by got(), set() and logins() are written to `log` as text.
struct PairedSession {
    explicit PairedSession(const std::string& username = "ab", bool manual = false) {
        auto [client, peer] = makeTransportPair();
        transport = client;
        device = std::make_unique<ScriptedPeer>(peer);
        device->channels = {{3, {0x33}}, {7, {0x77, 0x07}}};
        if (!manual) {
            client->onTick = [this] {
                ++ticks;
                clock->advance(std::chrono::milliseconds(1));
                device->serve();
            };
        }
        session = ClientSessionBuilder()
                      .setTransport(client)
                      .setUsername(username)
                      .setPassword("xyz")
                      .build();
    }

    std::shared_ptr<Receiver<GetOutcome>> got(const std::string& name = "get") {
        return makeReceiver<GetOutcome>([this, name](const GetOutcome& o) {
            log.push_back(name + " " + std::to_string(o.getChannelId()) + " " +
                          std::to_string(o.getReasonCode()) +
                          (o.getData().empty() ? "" : " " + hex(o.getData())));
        });
    }
    std::shared_ptr<Receiver<SetOutcome>> set() {
        return makeReceiver<SetOutcome>([this](const SetOutcome& o) {
            log.push_back("set " + std::to_string(o.getChannelId()) + " " +
                          std::to_string(o.getReasonCode()));
        });
    }
    std::shared_ptr<Receiver<LoginOutcome>> logins() {
        return makeReceiver<LoginOutcome>([this](const LoginOutcome& o) {
            log.push_back(std::string("login ") + LoginOutcome::name(o.getState()));
        });
    }
    // Ticks the session, and serves the device after each tick.
    void rounds(int n) {
        for (int i = 0; i < n; ++i) {
            session->tick();
            device->serve();
        }
    }
    void silence(OpCode code) {
        device->handlers[code] = [](const Message&) {};
    }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    SessionWaiter waiter{clock};
    std::shared_ptr<MemoryTransport> transport;
    std::unique_ptr<ScriptedPeer> device;
    std::shared_ptr<ClientSession> session;
    std::vector<std::string> log;
    int ticks = 0;
};

}  // namespace testing_support
