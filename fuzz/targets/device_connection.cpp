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
// NotLoggedIn refusals; it never holds more undecoded input than the limit;
// every event is one line of printable text; and the well-behaved client is
// never disturbed: its set is acknowledged and read back unchanged while the
// other connection is busy and after it has gone, and its subscription still
// delivers.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/wire/Decoder.h"
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

MessageProductionChain& responseChain() {
    static MessageProductionChain chain = *MessageProductionChain::newClientInstance();
    return chain;
}

// The client's end of a socket pair; the device holds the other end.
class Peer {
public:
    Peer(DeviceServer& server, int socket) : server(server), socket(socket) {}
    ~Peer() { vanish(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Sends every byte, polling the server while the socket is full.
    void send(const Bytes& bytes) {
        std::size_t sent = 0;
        for (int round = 0; sent < bytes.size() && socket >= 0; ++round) {
            const ssize_t n =
                ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n > 0) {
                sent += static_cast<std::size_t>(n);
            } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                FUZZ_CHECK(round < PollRounds);
                pump();
            } else {
                return;  // the device dropped the connection
            }
        }
    }
    // Reads what has arrived and returns the complete responses, each
    // checked to be well formed.
    std::vector<MessagePtr> receive() {
        unsigned char buffer[8192];
        ssize_t n;
        while (socket >= 0 && (n = ::recv(socket, buffer, sizeof buffer, 0)) > 0) {
            decoder.injectBytes(Bytes(buffer, buffer + n));
        }
        std::vector<MessagePtr> messages;
        while (decoder.hasFrames()) {
            MessagePtr message = responseChain().produceMessageFromFrame(decoder.extractFrame());
            FUZZ_CHECK(message != nullptr);
            messages.push_back(std::move(message));
        }
        return messages;
    }
    void pump() { server.poll(std::chrono::milliseconds(0)); }
    void vanish() {
        if (socket >= 0) {
            ::close(socket);
            socket = -1;
        }
    }
    std::size_t undecoded() const { return decoder.bufferedBytes(); }

private:
    DeviceServer& server;
    int socket;
    Decoder decoder;
};

template <typename Answer>
bool answers(const Message& message) {
    return dynamic_cast<const Answer*>(&message) != nullptr;
}

// A get's answer, told from a push by its channels: nothing asks for the
// watched channel.
template <>
bool answers<GetResponse>(const Message& message) {
    const auto* response = dynamic_cast<const GetResponse*>(&message);
    if (response == nullptr) {
        return false;
    }
    const std::vector<ChannelValue> values = response->getChannelValues();
    return !values.empty() && values[0].getChannelId() != WatchedChannel;
}

// Sends request and polls until a response of type Answer arrives; pushes of
// the watched channel that come first go to pushed.
template <typename Answer>
MessagePtr exchange(Peer& peer, const MessagePtr& request, std::vector<Bytes>& pushed) {
    peer.send(framed(request));
    for (int round = 0; round < PollRounds; ++round) {
        peer.pump();
        for (const MessagePtr& message : peer.receive()) {
            FUZZ_CHECK(message->getOpCode() != ErrorResponse::Code);
            if (answers<Answer>(*message)) {
                return message;
            }
            const auto* push = dynamic_cast<const GetResponse*>(message.get());
            FUZZ_CHECK(push != nullptr);
            for (const ChannelValue& value : push->getChannelValues()) {
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
        exchange<SetResponse>(good, SetRequest::newInstance(GoodChannel, value), pushed);
    FUZZ_CHECK(static_cast<const SetResponse&>(*set).getChannelId() == GoodChannel);
    const MessagePtr got =
        exchange<GetResponse>(good, GetRequest::newInstance({GoodChannel}), pushed);
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
            FUZZ_CHECK(error != nullptr);
            FUZZ_CHECK(error->getReasonCode() == ReasonCode::NotLoggedIn);
        }
    }
}

bool printableLine(const std::string& text) {
    for (const char c : text) {
        if (c < 0x20 || c > 0x7E) {
            return false;
        }
    }
    return !text.empty();
}

// The pieces the fuzzed connection sends, as the header bytes say.
std::vector<Bytes> cut(const std::uint8_t* data, std::size_t size) {
    std::vector<Bytes> pieces;
    if ((data[0] & 4) != 0) {
        for (std::size_t at = 2; at < size;) {
            const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
            const Bytes payload(data + at + 1, data + at + 1 + length);
            pieces.push_back(framed(payload));
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

int makePair(int ends[2]) {
    return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends);
}

unsigned int adopt(DeviceServer& server, int socket) {
    return server.adopt(TCPTransport::createShared(
        new TCPTransport(socket, ConnectionOutcome::Connected, nullptr)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const bool loginFirst = (data[0] & 1) != 0;
    const bool publishChanges = (data[0] & 2) != 0;
    const std::vector<Bytes> pieces = cut(data, size);

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

    int goodEnds[2];
    int fuzzedEnds[2];
    FUZZ_CHECK(makePair(goodEnds) == 0);
    FUZZ_CHECK(makePair(fuzzedEnds) == 0);
    Peer good(server, goodEnds[0]);
    Peer fuzzed(server, fuzzedEnds[0]);
    unsigned int goodId = 0;
    server.setEventReceiver(makeReceiver<DeviceEvent>([&goodId](const DeviceEvent& event) {
        FUZZ_CHECK(printableLine(event.describe()));
        FUZZ_CHECK(event.getConnectionId() != goodId || event.getKind() == DeviceEvent::Opened ||
                   event.getKind() == DeviceEvent::LoggedIn);
    }));
    goodId = adopt(server, goodEnds[1]);
    const unsigned int fuzzedId = adopt(server, fuzzedEnds[1]);

    std::vector<Bytes> pushed;
    const MessagePtr login =
        exchange<LoginResponse>(good, LoginRequest::newInstance("admin", "secret"), pushed);
    FUZZ_CHECK(static_cast<const LoginResponse&>(*login).getResult() == LoginResponse::Success);
    exchange<SubscriptionResponse>(good, SubscriptionRequest::newInstance({WatchedChannel}),
                                   pushed);

    bool fuzzedLoggedIn = false;
    if (loginFirst) {
        fuzzed.send(framed(LoginRequest::newInstance("admin", "secret")));
    }
    unsigned char change = 0;
    for (const Bytes& piece : pieces) {
        fuzzed.send(piece);
        if (publishChanges) {
            store->update(3, {++change, 0});
        }
        fuzzed.pump();
        checkFuzzedOutput(fuzzed, fuzzedLoggedIn);
        const auto connection = server.findConnection(fuzzedId);
        FUZZ_CHECK(!connection || connection->undecodedBytes() <= MaxInputBytes);
    }

    // Served alongside the other connection, which may be inside a frame.
    setAndReadBack(good, {1, 2, 3, static_cast<unsigned char>(size)}, pushed);
    checkFuzzedOutput(fuzzed, fuzzedLoggedIn);

    fuzzed.vanish();
    for (int round = 0; round < PollRounds && server.connectionCount() > 1; ++round) {
        good.pump();
    }
    FUZZ_CHECK(server.connectionCount() == 1);
    FUZZ_CHECK(server.loggedInCount() == 1);
    setAndReadBack(good, {4, 3, 2, static_cast<unsigned char>(size >> 8)}, pushed);

    // The subscription made before the fuzzing still delivers.
    pushed.clear();
    store->update(WatchedChannel, {7, 7, 7, 7});
    exchange<GetResponse>(good, GetRequest::newInstance({2}), pushed);
    FUZZ_CHECK(!pushed.empty() && pushed.back() == (Bytes{7, 7, 7, 7}));
    FUZZ_CHECK(good.undecoded() == 0);
    return 0;
}
