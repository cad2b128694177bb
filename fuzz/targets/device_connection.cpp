// A DeviceServer fed arbitrary bytes on one connection while a second,
// well-behaved client uses it too. Both connections are local socket pairs
// adopted by the server as if accepted: no network, no listener, and the
// server's own poll() moves the bytes, as in a real device.
//
// Input: byte 0 holds flags, byte 1 the piece size less one, the rest is
// what the fuzzed connection sends. Flag bit 0: it first logs in properly;
// bit 1: the application writes channel 3 after every piece, so that
// subscriptions and log push have changes to send; bit 2: the rest is a list
// of payloads (a length byte, then that many bytes), each sent framed as one
// piece, so that mutations reach the request handling; otherwise the rest is
// raw bytes, sent in pieces of the given size. The server is polled after
// each piece. Then the fuzzed client vanishes, maybe in the middle of a frame.
//
// Invariants: every frame the device sends is a well-formed response; while
// the fuzzed connection is not logged in it gets only login responses and
// NotLoggedIn refusals; it never holds more undecoded input than the limit,
// and is dropped for its input only beyond it; every event after the
// connections opened is one line of printable text; and the well-behaved
// client is never disturbed: its set is acknowledged and read back unchanged
// while the other connection is busy and after it has gone, and its
// subscription still delivers.
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/chanlink.h"
#include "support/Frames.h"

namespace {

using testing_support::framed;
using Bytes = std::vector<unsigned char>;
using MessagePtr = std::shared_ptr<const Message>;

constexpr unsigned int GoodChannel = 9;     // only the good client sets it
constexpr unsigned int WatchedChannel = 1;  // the good client subscribes to it
constexpr std::size_t MaxInputBytes = 512;
constexpr int PollRounds = 64;  // a bound on every wait; one poll normally does
constexpr std::size_t MaxPieces = 32;

// The client's end of a socket pair whose other end the device adopted.
struct Peer {
    explicit Peer(DeviceServer& server) : server(server) {
        int ends[2];
        FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
        socket = TCPTransport::createShared(
            new TCPTransport(ends[0], ConnectionOutcome::Connected, nullptr));
        id = server.adopt(TCPTransport::createShared(
            new TCPTransport(ends[1], ConnectionOutcome::Connected, nullptr)));
    }

    // Sends every byte, polling the server while the socket is full, until
    // the device drops the connection.
    void send(const Bytes& bytes) {
        std::size_t sent = 0;
        for (int round = 0; sent < bytes.size() && socket->state() == ConnectionOutcome::Connected;
             ++round) {
            const int n = socket->write(bytes.data() + sent, static_cast<int>(bytes.size() - sent));
            sent += static_cast<std::size_t>(n);
            total += static_cast<std::size_t>(n);
            if (n == 0) {
                FUZZ_CHECK(round < PollRounds);
                pump();
            }
        }
    }
    // The complete responses that have arrived, each checked to be well formed.
    std::vector<MessagePtr> receive() {
        static const auto responses = MessageProductionChain::newClientInstance();
        unsigned char buffer[8192];
        for (int n; (n = socket->read(buffer, sizeof buffer)) > 0;) {
            decoder.injectBytes(Bytes(buffer, buffer + n));
        }
        std::vector<MessagePtr> messages;
        while (decoder.hasFrames()) {
            messages.push_back(responses->produceMessageFromFrame(decoder.extractFrame()));
            FUZZ_CHECK(messages.back() != nullptr);
        }
        return messages;
    }
    void pump() { server.poll(std::chrono::milliseconds(0)); }

    DeviceServer& server;
    std::shared_ptr<TCPTransport> socket;
    unsigned int id;
    Decoder decoder;
    std::size_t total = 0;  // bytes sent
};

// Pushes of the watched channel, told from a get's answer by their channel:
// nothing asks for the watched channel.
bool isPush(const Message& message) {
    const auto* response = dynamic_cast<const GetResponse*>(&message);
    return response != nullptr && !response->getChannelValues().empty() &&
           response->getChannelValues()[0].getChannelId() == WatchedChannel;
}

// Sends request and polls until an answer of opcode expected arrives; pushes
// of the watched channel that come first go to pushed.
MessagePtr exchange(Peer& peer, const MessagePtr& request, OpCode expected,
                    std::vector<Bytes>& pushed) {
    peer.send(framed(request));
    for (int round = 0; round < PollRounds; ++round) {
        peer.pump();
        for (const MessagePtr& message : peer.receive()) {
            if (!isPush(*message)) {
                FUZZ_CHECK(message->getOpCode() == expected);
                return message;
            }
            for (const ChannelValue& value :
                 static_cast<const GetResponse&>(*message).getChannelValues()) {
                FUZZ_CHECK(value.getChannelId() == WatchedChannel);
                pushed.push_back(value.getData());
            }
        }
    }
    FUZZ_CHECK(!"the device did not answer the good client");
    return nullptr;
}

// The good client writes its own channel and reads the value back.
void setAndReadBack(Peer& good, const Bytes& value, std::vector<Bytes>& pushed) {
    const MessagePtr set =
        exchange(good, SetRequest::newInstance(GoodChannel, value), SetResponse::Code, pushed);
    FUZZ_CHECK(static_cast<const SetResponse&>(*set).getChannelId() == GoodChannel);
    const MessagePtr got =
        exchange(good, GetRequest::newInstance({GoodChannel}), GetResponse::Code, pushed);
    const std::vector<ChannelValue> values =
        static_cast<const GetResponse&>(*got).getChannelValues();
    FUZZ_CHECK(values.size() == 1 && values[0].getChannelId() == GoodChannel);
    FUZZ_CHECK(values[0].getData() == value);
}

// What the fuzzed connection may receive: anything well formed once logged
// in, only login answers and refusals for want of a login otherwise.
void checkFuzzedOutput(Peer& fuzzed, bool& loggedIn) {
    for (const MessagePtr& message : fuzzed.receive()) {
        if (const auto* login = dynamic_cast<const LoginResponse*>(message.get())) {
            loggedIn = login->getResult() == LoginResponse::Success;
        } else if (!loggedIn) {
            const auto* error = dynamic_cast<const ErrorResponse*>(message.get());
            FUZZ_CHECK(error != nullptr && error->getReasonCode() == ReasonCode::NotLoggedIn);
        }
    }
}

// The pieces the fuzzed connection sends, as the header bytes say.
std::vector<Bytes> cut(const std::uint8_t* data, std::size_t size) {
    std::vector<Bytes> pieces;
    if ((data[0] & 4) != 0) {
        for (std::size_t at = 2; at < size;) {
            const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
            pieces.push_back(framed(Bytes(data + at + 1, data + at + 1 + length)));
            at += 1 + length;
        }
        return pieces;
    }
    // At most MaxPieces pieces: cutting the stream finely is the decoder
    // target's work, and every piece costs a poll.
    const std::size_t piece = std::max<std::size_t>(data[1] + 1u, size / MaxPieces);
    for (std::size_t at = 2; at < size; at += piece) {
        pieces.emplace_back(data + at, data + std::min(at + piece, size));
    }
    return pieces;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    auto store = std::make_shared<MemoryChannelStore>();
    store->addChannel(WatchedChannel, {0, 0, 0, 0}, false);
    store->addChannel(2, {0x10}, true);
    store->addChannel(3, {0, 0}, false);
    store->addChannel(GoodChannel, {0, 0, 0, 0}, false);
    DeviceSettings settings;
    settings.username = "admin";
    settings.password = "secret";
    settings.maxLoggedIn = 2;
    settings.maxInputBytes = MaxInputBytes;
    settings.maxBacklogBytes = 64 * 1024;
    // The request rules are fuzzed here, not the back-off: logins are
    // answered at once however many fail.
    settings.loginDelay = std::chrono::milliseconds(0);
    settings.maxFailedLogins = 0;
    DeviceServer server(store, settings);
    Peer good(server);
    Peer fuzzed(server);
    server.setEventReceiver(makeReceiver<DeviceEvent>([&](const DeviceEvent& event) {
        const std::string line = event.describe();
        FUZZ_CHECK(!line.empty() && std::all_of(line.begin(), line.end(),
                                                [](char c) { return c >= 0x20 && c <= 0x7E; }));
        FUZZ_CHECK(event.getConnectionId() != good.id || event.getKind() == DeviceEvent::LoggedIn);
        // Dropped for its input only once it held more than the limit.
        FUZZ_CHECK(line.find("without a complete frame") == std::string::npos ||
                   fuzzed.total > MaxInputBytes);
    }));

    std::vector<Bytes> pushed;
    const MessagePtr login =
        exchange(good, LoginRequest::newInstance("admin", "secret"), LoginResponse::Code, pushed);
    FUZZ_CHECK(static_cast<const LoginResponse&>(*login).getResult() == LoginResponse::Success);
    exchange(good, SubscriptionRequest::newInstance({WatchedChannel}), SubscriptionResponse::Code,
             pushed);

    bool fuzzedLoggedIn = false;
    if ((data[0] & 1) != 0) {
        fuzzed.send(framed(LoginRequest::newInstance("admin", "secret")));
    }
    unsigned char change = 0;
    for (const Bytes& piece : cut(data, size)) {
        fuzzed.send(piece);
        if ((data[0] & 2) != 0) {
            store->update(3, {++change, 0});
        }
        fuzzed.pump();
        checkFuzzedOutput(fuzzed, fuzzedLoggedIn);
        const auto connection = server.findConnection(fuzzed.id);
        FUZZ_CHECK(!connection || connection->undecodedBytes() <= MaxInputBytes);
    }

    // Served alongside the other connection, which may be inside a frame.
    setAndReadBack(good, {1, 2, 3, static_cast<unsigned char>(size)}, pushed);
    checkFuzzedOutput(fuzzed, fuzzedLoggedIn);

    fuzzed.socket->close();  // maybe in the middle of a frame
    for (int round = 0; round < PollRounds && server.connectionCount() > 1; ++round) {
        good.pump();
    }
    FUZZ_CHECK(server.connectionCount() == 1 && server.loggedInCount() == 1);
    setAndReadBack(good, {4, 3, 2, static_cast<unsigned char>(size >> 8)}, pushed);

    // The subscription made before the fuzzing still delivers.
    pushed.clear();
    store->update(WatchedChannel, {7, 7, 7, 7});
    exchange(good, GetRequest::newInstance({2}), GetResponse::Code, pushed);
    FUZZ_CHECK(!pushed.empty() && pushed.back() == (Bytes{7, 7, 7, 7}));
    FUZZ_CHECK(good.decoder.bufferedBytes() == 0);
    return 0;
}
