#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "chanlink/capture/PcapWriter.h"

// One connection recorded as a TCP conversation in a PcapWriter's file: a
// handshake when made, each run of bytes as one segment of its direction
// with consistent sequence and acknowledgement numbers, and a closing
// handshake, all stamped with the time of the call. That is enough for
// Wireshark to reassemble each direction as it does for real traffic.
class CaptureStream {
public:
    // An IPv4 or IPv6 address and port. An IPv4-mapped IPv6 address is
    // stored as IPv4, so both ends of a dual-stack socket match.
    struct Endpoint {
        bool ipv6 = false;
        std::array<unsigned char, 16> address{};  // IPv4 in the first four bytes
        std::uint16_t port = 0;

        // Read from a socket address; false for another family.
        static bool fromSocketAddress(const sockaddr* address, socklen_t size, Endpoint& result);
        // 127.0.0.1 and the port.
        static Endpoint loopback(std::uint16_t port);
    };

    enum class Side { Client, Server };

    // Records the opening handshake. Both ends are written with the
    // client's family when the two differ.
    CaptureStream(std::shared_ptr<PcapWriter> writer, Endpoint client, Endpoint server);

    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    // Records bytes sent by one side, in segments of at most
    // MaxSegmentBytes. Nothing after close().
    void record(Side from, const unsigned char* bytes, std::size_t count);
    // Records the closing handshake, begun by closer; only the first call counts.
    void close(Side closer);
    bool closed() const { return isClosed; }

    static constexpr std::size_t MaxSegmentBytes = 65000;

private:
    // TCP flags
    static constexpr unsigned char Fin = 0x01, Syn = 0x02, Push = 0x08, Ack = 0x10;

    void send(Side from, unsigned char flags, const unsigned char* bytes, std::size_t count);

    std::shared_ptr<PcapWriter> writer;
    Endpoint client;
    Endpoint server;
    // The next sequence number each side sends.
    std::uint32_t clientNext;
    std::uint32_t serverNext;
    std::uint16_t nextIpId = 1;
    bool isClosed = false;
};
