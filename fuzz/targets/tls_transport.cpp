// The TLS transports fed garbage by their peer, over TCP on ::1.
//
// Input: byte 0 selects the case (mod 3), the rest is what the peer sends,
// raw, before it ends its stream, or resets it when bit 7 of byte 0 is set.
// 0: a device's TLSServerTransport gets it instead of a client hello;
// 1: a TLSClientTransport gets it as the device's answer to its hello;
// 2: a client and a device complete a real handshake, then the client gets
//    the bytes from the device's socket in the middle of the TLS stream.
//
// Invariants: a read never returns more than asked for; a transport fed
// garbage ends (fails or closes) by the peer's end of stream at the latest,
// says why in one line and asks to be waited on no more; and every call
// returns (no call waits for the peer).
#include <poll.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "FuzzCheck.h"
#include "chanlink/chanlink.h"
#include "chanlink/tls.h"

namespace {

constexpr int Rounds = 64;

// The device's context, with certificates made once per run.
std::shared_ptr<TLSContext> deviceContext() {
    static const std::shared_ptr<TLSContext> context = [] {
        char directory[] = "/tmp/chanlink-fuzz-XXXXXX";
        FUZZ_CHECK(::mkdtemp(directory) != nullptr);
        const std::string made = directory;
        FUZZ_CHECK(std::system(("bash " CHANLINK_MAKE_CERTS " " + made).c_str()) == 0);
        std::string error;
        auto loaded =
            TLSContext::forServer({made + "/device.pem", made + "/device.key", ""}, error);
        FUZZ_CHECK(std::system(("rm -rf " + made).c_str()) == 0 && loaded != nullptr);
        return loaded;
    }();
    return context;
}

TCPServerTransportBuilder& listener() {
    static TCPServerTransportBuilder builder("0", "::1");
    return builder;
}

std::shared_ptr<TCPTransport> acceptOne() {
    std::shared_ptr<TCPTransport> accepted = listener().accept(1, 0);
    FUZZ_CHECK(accepted != nullptr);
    return accepted;
}

// One tick and a read, then a wait of at most 10 ms for the socket; true once
// the transport has failed or closed.
bool step(TLSTransport& transport) {
    unsigned char buffer[256];
    transport.tick();
    const int count = transport.read(buffer, sizeof buffer);
    FUZZ_CHECK(count >= 0 && count <= static_cast<int>(sizeof buffer));
    const TransportPoll poll = TransportPoll::of(transport);
    if (poll.ended()) {
        FUZZ_CHECK(transport.getFailureReason().find('\n') == std::string::npos);
        FUZZ_CHECK(poll.entry(true).fd == -1);
        return true;
    }
    pollfd entry = poll.entry(false);
    ::poll(&entry, 1, 10);
    return false;
}

// Feeds the garbage in data to transport until it gives up or has taken it all in.
void feed(TLSTransport& transport, TCPTransport& peer, const std::uint8_t* data, std::size_t size) {
    // Inputs are at most a few KiB, which the socket buffers take whole; a
    // transport that closed early refuses the rest, which cannot matter.
    [[maybe_unused]] const ssize_t sent =
        ::send(peer.getSocket(), data + 1, size - 1, MSG_NOSIGNAL);
    if ((data[0] & 0x80) != 0) {
        const linger reset{1, 0};
        ::setsockopt(peer.getSocket(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        peer.close();
    } else {
        ::shutdown(peer.getSocket(), SHUT_WR);
    }
    for (int round = 0; round < Rounds && !step(transport); ++round) {
    }
    // The peer's end of stream or reset comes behind the garbage at the latest.
    FUZZ_CHECK(TransportPoll::of(transport).ended());
    // A reset behind no garbage is named as one.
    FUZZ_CHECK(size > 1 || (data[0] & 0x80) == 0 ||
               transport.getFailureReason().find("reset by peer") != std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || !listener().isListening()) {
        return 0;
    }
    const std::string service = listener().getListeningService();
    if (data[0] % 3 == 0) {
        TCPClientTransport raw("::1", service, nullptr);
        raw.connect();
        TLSServerTransport device(acceptOne(), deviceContext());
        FUZZ_CHECK(raw.blockingConnect() == ConnectionOutcome::Connected);
        feed(device, raw, data, size);
        return 0;
    }
    TLSClientSettings settings;
    settings.verifyPeer = false;  // garbage gets past no check anyway
    TLSClientTransport client("::1", service, nullptr, settings);
    client.connect();
    const std::shared_ptr<TCPTransport> accepted = acceptOne();
    std::unique_ptr<TLSServerTransport> device;
    if (data[0] % 3 == 2) {  // garbage in the middle of the TLS stream
        device = std::make_unique<TLSServerTransport>(accepted, deviceContext());
        for (int round = 0; round < Rounds && (client.state() != ConnectionOutcome::Connected ||
                                               device->state() != ConnectionOutcome::Connected);
             ++round) {
            step(client);
            step(*device);
        }
        FUZZ_CHECK(client.state() == ConnectionOutcome::Connected);
    }
    feed(client, *accepted, data, size);
    return 0;
}
