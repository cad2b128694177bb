// TLS against plain TCP, both to a DeviceServer on 127.0.0.1 in this thread:
// the round trip of one get (argument 0: TCP, 1: TLS), and the time from
// connect() to a completed handshake. Certificates are made for the run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/tls.h"
#include "chanlink/transport/TCPClientTransport.h"

namespace {

const std::string& certificates() {
    static const std::string directory = [] {
        char pattern[] = "/tmp/chanlink-bench-XXXXXX";
        if (::mkdtemp(pattern) == nullptr ||
            std::system((std::string("bash " CHANLINK_MAKE_CERTS " ") + pattern).c_str()) != 0) {
            return std::string();
        }
        return std::string(pattern);
    }();
    return directory;
}

struct Device {
    explicit Device(bool tls) : store(std::make_shared<MemoryChannelStore>()) {
        store->addChannel(1, {1, 2, 3, 4}, false);
        DeviceSettings settings;
        settings.username = "admin";
        settings.password = "secret";
        settings.maxPending = 0;
        if (tls) {
            std::string error;
            const std::string& dir = certificates();
            context = TLSContext::forServer({dir + "/device.pem", dir + "/device.key", ""}, error);
            settings.wrapConnection = TLSServerTransport::wrapper(context);
        }
        server = std::make_unique<DeviceServer>(store, settings);
        server->listen("0", "127.0.0.1");
    }
    std::shared_ptr<Transport> connect(bool tls) {
        if (!tls) {
            auto tcp = std::make_shared<TCPClientTransport>("127.0.0.1",
                                                            server->getListeningService(), nullptr);
            tcp->connect();
            return tcp;
        }
        TLSClientSettings settings;
        settings.caFile = certificates() + "/ca.pem";
        auto transport = std::make_shared<TLSClientTransport>(
            "127.0.0.1", server->getListeningService(), nullptr, settings);
        transport->connect();
        return transport;
    }
    // Polls the device and ticks the client until done() or a bound of rounds.
    template <typename Client, typename Done>
    bool pump(Client& client, Done done) {
        for (long round = 0; round < 1000000; ++round) {
            server->poll(std::chrono::milliseconds(0));
            client.tick();
            if (done()) {
                return true;
            }
        }
        return false;
    }

    std::shared_ptr<MemoryChannelStore> store;
    std::shared_ptr<TLSContext> context;
    std::unique_ptr<DeviceServer> server;
};

void BM_GetRoundTrip(benchmark::State& state) {
    const bool tls = state.range(0) == 1;
    Device device(tls);
    std::shared_ptr<Transport> transport = device.connect(tls);
    auto session = ClientSessionBuilder()
                       .setTransport(transport)
                       .setUsername("admin")
                       .setPassword("secret")
                       .build();
    session->initiateLogin();
    if (!device.pump(*session, [&] { return session->getLoginState().loggedIn(); })) {
        state.SkipWithError("no login");
        return;
    }
    long answers = 0;
    auto receiver = makeReceiver<GetOutcome>([&answers](const GetOutcome&) { ++answers; });
    for (auto _ : state) {
        const long expected = answers + 1;
        session->requestChannel(1, receiver);
        if (!device.pump(*session, [&] { return answers == expected; })) {
            state.SkipWithError("no answer");
            return;
        }
    }
    state.SetLabel(tls ? "TLS" : "TCP");
}
BENCHMARK(BM_GetRoundTrip)->Arg(0)->Arg(1);

void BM_TlsHandshake(benchmark::State& state) {
    Device device(true);
    for (auto _ : state) {
        auto transport = std::static_pointer_cast<TLSClientTransport>(device.connect(true));
        if (!device.pump(*transport,
                         [&] { return transport->state() != ConnectionOutcome::Connecting; }) ||
            transport->state() != ConnectionOutcome::Connected) {
            state.SkipWithError("no handshake");
            return;
        }
        state.PauseTiming();
        transport->close();
        device.server->poll(std::chrono::milliseconds(0));
        state.ResumeTiming();
    }
}
BENCHMARK(BM_TlsHandshake);

}  // namespace
