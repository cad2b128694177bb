// One get over TCP loopback: a ClientSession's timed blockingGet against a
// DeviceServer polled in a second thread, beside a raw socket ping-pong of
// the same byte sizes in which both sides wait with poll() too. The ratio of
// the two is the cost of the library around the same system calls. Run it
// pinned to one CPU and unpinned (see docs/PERFORMANCE.md).
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/wire/Encoder.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

constexpr unsigned int Channel = 1;
const Bytes Value = {1, 2, 3, 4};

Bytes framed(const std::shared_ptr<const Message>& message) {
    Bytes stream;
    Encoder().injectFrame(message->write(), stream);
    return stream;
}

void BM_RoundTripSessionGet(benchmark::State& state) {
    auto store = std::make_shared<MemoryChannelStore>();
    store->addChannel(Channel, Value, false);
    DeviceServer server(store, DeviceSettings{"u", "p"});
    if (!server.listen("0", "127.0.0.1")) {
        state.SkipWithError("cannot listen on 127.0.0.1");
        return;
    }
    std::atomic<bool> stop{false};
    std::thread device([&] {
        while (!stop.load()) {
            server.poll(100ms);  // bounded, should the wake descriptor be missing
        }
    });
    auto transport =
        std::make_shared<TCPClientTransport>("127.0.0.1", server.getListeningService(), nullptr);
    transport->blockingConnect();
    auto session =
        ClientSessionBuilder().setTransport(transport).setUsername("u").setPassword("p").build();
    const auto login = session->blockingLogin(5s);
    if (login && login->loggedIn()) {
        for (auto _ : state) {
            const auto outcome = session->blockingGet(Channel, 5s);
            if (!outcome || outcome->getData() != Value) {
                state.SkipWithError("no value");
                break;
            }
        }
    } else {
        state.SkipWithError("no login");
    }
    stop.store(true);
    const char wake = 1;
    benchmark::DoNotOptimize(::write(server.getWakeDescriptor(), &wake, 1));
    device.join();
}
BENCHMARK(BM_RoundTripSessionGet)->UseRealTime();

// Reads exactly size bytes, waiting with poll() whenever none are there.
bool readAll(int fd, Bytes& buffer, std::size_t size) {
    std::size_t got = 0;
    while (got < size) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 5000) <= 0) {
            return false;
        }
        const ssize_t n = ::recv(fd, buffer.data() + got, size - got, 0);
        if (n <= 0) {
            return false;
        }
        got += static_cast<std::size_t>(n);
    }
    return true;
}

void BM_RoundTripRawPingPong(benchmark::State& state) {
    const Bytes request = framed(GetRequest::newInstance({Channel}));
    const Bytes response = framed(
        GetResponse::newInstance({std::make_shared<const ChannelValue>(Channel, Bytes{}, Value)}));
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener, 1) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(listener);
        state.SkipWithError("cannot listen on 127.0.0.1");
        return;
    }
    std::thread peer([&] {
        const int fd = ::accept(listener, nullptr, nullptr);
        if (fd < 0) {
            return;
        }
        Bytes buffer(request.size());
        while (readAll(fd, buffer, request.size())) {
            ::send(fd, response.data(), response.size(), MSG_NOSIGNAL);
        }
        ::close(fd);
    });
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0) {
        Bytes buffer(response.size());
        for (auto _ : state) {
            ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
            if (!readAll(fd, buffer, response.size())) {
                state.SkipWithError("no answer");
                break;
            }
        }
    } else {
        ::shutdown(listener, SHUT_RDWR);  // ends the peer's accept
        state.SkipWithError("cannot connect");
    }
    ::shutdown(fd, SHUT_RDWR);
    ::close(fd);
    peer.join();
    ::close(listener);
    state.counters["request_bytes"] = static_cast<double>(request.size());
    state.counters["response_bytes"] = static_cast<double>(response.size());
}
BENCHMARK(BM_RoundTripRawPingPong)->UseRealTime();

}  // namespace
