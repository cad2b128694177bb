#include "chanlink/capture/CaptureTransport.h"

#include <sys/socket.h>

#include <utility>

namespace {

// Made-up ports for transports without a socket: the device's usual port,
// and a client port per stream so that the streams stay apart.
constexpr std::uint16_t SyntheticServerPort = 7300;
constexpr std::uint16_t FirstSyntheticClientPort = 49152;

bool socketEndpoints(int descriptor, CaptureStream::Endpoint& local,
                     CaptureStream::Endpoint& peer) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        !CaptureStream::Endpoint::fromSocketAddress(reinterpret_cast<sockaddr*>(&address), size,
                                                    local)) {
        return false;
    }
    size = sizeof address;
    return ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           CaptureStream::Endpoint::fromSocketAddress(reinterpret_cast<sockaddr*>(&address), size,
                                                      peer);
}

}  // namespace

CaptureTransport::CaptureTransport(std::shared_ptr<Transport> inner,
                                   std::shared_ptr<PcapWriter> writer, CaptureStream::Side side,
                                   bool captureCredentials)
    : inner(std::move(inner)), writer(std::move(writer)), side(side) {
    if (!captureCredentials) {
        redactor = std::make_unique<LoginRedactor>();
    }
}

CaptureTransport::~CaptureTransport() {
    finish(side);
}

// The stream starts after the inner call: a TLS read or write can finish the
// handshake and move the first bytes (a login, say) in one call.
int CaptureTransport::read(void* buffer, int length) {
    const int count = inner->read(buffer, length);
    startWhenConnected(count > 0);
    record(false, static_cast<const unsigned char*>(buffer), count);
    noticeEnd();
    return count;
}

int CaptureTransport::write(const void* buffer, int length) {
    const int count = inner->write(buffer, length);
    startWhenConnected(count > 0);
    record(true, static_cast<const unsigned char*>(buffer), count);
    noticeEnd();
    return count;
}

void CaptureTransport::tick() {
    inner->tick();
    startWhenConnected(false);
    noticeEnd();
}

TransportPoll CaptureTransport::pollState() const {
    return TransportPoll::of(*inner);
}

void CaptureTransport::close() {
    finish(side);
    TransportPoll::close(*inner);
}

void CaptureTransport::startWhenConnected(bool bytesMoved) {
    if (stream || writer->stopped()) {
        return;
    }
    // Bytes that moved count even when the same call also saw the end.
    const TransportPoll poll = TransportPoll::of(*inner);
    if (poll.state != ConnectionOutcome::Connected && !bytesMoved) {
        return;
    }
    const unsigned int number = writer->nextStreamNumber();
    CaptureStream::Endpoint local;
    CaptureStream::Endpoint peer;
    if (!poll.hasSocket || !socketEndpoints(poll.descriptor, local, peer)) {
        const auto clientPort =
            static_cast<std::uint16_t>(FirstSyntheticClientPort + number % 16000);
        local = CaptureStream::Endpoint::loopback(
            side == CaptureStream::Side::Client ? clientPort : SyntheticServerPort);
        peer = CaptureStream::Endpoint::loopback(
            side == CaptureStream::Side::Client ? SyntheticServerPort : clientPort);
    }
    const bool isClient = side == CaptureStream::Side::Client;
    stream =
        std::make_unique<CaptureStream>(writer, isClient ? local : peer, isClient ? peer : local);
}

void CaptureTransport::record(bool sent, const unsigned char* bytes, int count) {
    if (!stream || count <= 0) {
        return;
    }
    const CaptureStream::Side other = side == CaptureStream::Side::Client
                                          ? CaptureStream::Side::Server
                                          : CaptureStream::Side::Client;
    const CaptureStream::Side from = sent ? side : other;
    if (redactor && from == CaptureStream::Side::Client) {
        const std::vector<unsigned char> shown =
            redactor->take(bytes, static_cast<std::size_t>(count));
        stream->record(from, shown.data(), shown.size());
    } else {
        stream->record(from, bytes, static_cast<std::size_t>(count));
    }
}

void CaptureTransport::noticeEnd() {
    if (stream && !stream->closed() && TransportPoll::of(*inner).ended()) {
        // This side would have recorded its own closing first: the peer ended it.
        finish(side == CaptureStream::Side::Client ? CaptureStream::Side::Server
                                                   : CaptureStream::Side::Client);
    }
}

void CaptureTransport::finish(CaptureStream::Side closer) {
    if (!stream || stream->closed()) {
        return;
    }
    if (redactor) {
        const std::vector<unsigned char> rest = redactor->finish();
        stream->record(CaptureStream::Side::Client, rest.data(), rest.size());
    }
    stream->close(closer);
}
