#include "chanlink/capture/CaptureStream.h"

#include <netinet/in.h>

#include <cstring>
#include <utility>

namespace {

void putUint16(std::vector<unsigned char>& out, std::uint16_t value) {
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}

void putUint32(std::vector<unsigned char>& out, std::uint32_t value) {
    putUint16(out, static_cast<std::uint16_t>(value >> 16));
    putUint16(out, static_cast<std::uint16_t>(value));
}

// The Internet checksum of bytes [from, to) of packet, added to sum.
std::uint32_t addSum(std::uint32_t sum, const std::vector<unsigned char>& packet, std::size_t from,
                     std::size_t to) {
    for (std::size_t i = from; i < to; i += 2) {
        sum += static_cast<std::uint32_t>(packet[i] << 8) + (i + 1 < to ? packet[i + 1] : 0);
    }
    return sum;
}

std::uint16_t foldSum(std::uint32_t sum) {
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

void setUint16At(std::vector<unsigned char>& packet, std::size_t at, std::uint16_t value) {
    packet[at] = static_cast<unsigned char>(value >> 8);
    packet[at + 1] = static_cast<unsigned char>(value);
}

}  // namespace

bool CaptureStream::Endpoint::fromSocketAddress(const sockaddr* address, socklen_t size,
                                                Endpoint& result) {
    result = Endpoint{};
    if (address->sa_family == AF_INET && size >= static_cast<socklen_t>(sizeof(sockaddr_in))) {
        const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(address);
        std::memcpy(result.address.data(), &ipv4->sin_addr, 4);
        result.port = ntohs(ipv4->sin_port);
        return true;
    }
    if (address->sa_family == AF_INET6 && size >= static_cast<socklen_t>(sizeof(sockaddr_in6))) {
        const auto* ipv6 = reinterpret_cast<const sockaddr_in6*>(address);
        result.port = ntohs(ipv6->sin6_port);
        if (IN6_IS_ADDR_V4MAPPED(&ipv6->sin6_addr)) {
            std::memcpy(result.address.data(), ipv6->sin6_addr.s6_addr + 12, 4);
        } else {
            result.ipv6 = true;
            std::memcpy(result.address.data(), ipv6->sin6_addr.s6_addr, 16);
        }
        return true;
    }
    return false;
}

CaptureStream::Endpoint CaptureStream::Endpoint::loopback(std::uint16_t port) {
    Endpoint result;
    result.address[0] = 127;
    result.address[3] = 1;
    result.port = port;
    return result;
}

CaptureStream::CaptureStream(std::shared_ptr<PcapWriter> writer, Endpoint client, Endpoint server)
    : writer(std::move(writer)), client(client), server(server) {
    this->server.ipv6 = this->client.ipv6;
    // Distinct initial sequence numbers per port pair, as a real stack would pick.
    clientNext = 0x10000000u + client.port * 7919u;
    serverNext = 0x60000000u + server.port * 104729u;
    send(Side::Client, Syn, nullptr, 0);
    ++clientNext;
    send(Side::Server, Syn | Ack, nullptr, 0);
    ++serverNext;
    send(Side::Client, Ack, nullptr, 0);
}

void CaptureStream::record(Side from, const unsigned char* bytes, std::size_t count) {
    while (!isClosed && count > 0) {
        const std::size_t segment = count < MaxSegmentBytes ? count : MaxSegmentBytes;
        send(from, Push | Ack, bytes, segment);
        (from == Side::Client ? clientNext : serverNext) += static_cast<std::uint32_t>(segment);
        bytes += segment;
        count -= segment;
    }
}

void CaptureStream::close(Side closer) {
    if (isClosed) {
        return;
    }
    const Side other = closer == Side::Client ? Side::Server : Side::Client;
    send(closer, Fin | Ack, nullptr, 0);
    ++(closer == Side::Client ? clientNext : serverNext);
    send(other, Fin | Ack, nullptr, 0);
    ++(other == Side::Client ? clientNext : serverNext);
    send(closer, Ack, nullptr, 0);
    isClosed = true;
}

void CaptureStream::send(Side from, unsigned char flags, const unsigned char* bytes,
                         std::size_t count) {
    const Endpoint& source = from == Side::Client ? client : server;
    const Endpoint& target = from == Side::Client ? server : client;
    const std::size_t addressBytes = client.ipv6 ? 16 : 4;
    const std::size_t ipHeader = client.ipv6 ? 40 : 20;
    const std::size_t tcpLength = 20 + count;

    std::vector<unsigned char> packet;
    packet.reserve(ipHeader + tcpLength);
    if (client.ipv6) {
        putUint32(packet, 0x60000000);  // version 6, no traffic class or flow label
        putUint16(packet, static_cast<std::uint16_t>(tcpLength));
        packet.push_back(IPPROTO_TCP);
        packet.push_back(64);  // hop limit
    } else {
        packet.push_back(0x45);  // version 4, 20-byte header
        packet.push_back(0);
        putUint16(packet, static_cast<std::uint16_t>(ipHeader + tcpLength));
        putUint16(packet, nextIpId++);
        putUint16(packet, 0x4000);  // don't fragment
        packet.push_back(64);       // time to live
        packet.push_back(IPPROTO_TCP);
        putUint16(packet, 0);  // checksum, set below
    }
    packet.insert(packet.end(), source.address.begin(), source.address.begin() + addressBytes);
    packet.insert(packet.end(), target.address.begin(), target.address.begin() + addressBytes);
    if (!client.ipv6) {
        setUint16At(packet, 10, foldSum(addSum(0, packet, 0, ipHeader)));
    }

    putUint16(packet, source.port);
    putUint16(packet, target.port);
    putUint32(packet, from == Side::Client ? clientNext : serverNext);
    putUint32(packet, (flags & Ack) != 0 ? (from == Side::Client ? serverNext : clientNext) : 0);
    packet.push_back(5 << 4);  // 20-byte header, no options
    packet.push_back(flags);
    putUint16(packet, 65535);  // window
    putUint16(packet, 0);      // checksum, set below
    putUint16(packet, 0);      // urgent pointer
    if (count > 0) {
        packet.insert(packet.end(), bytes, bytes + count);
    }

    // The pseudo-header: both addresses, the protocol and the TCP length.
    const std::size_t addressesAt = client.ipv6 ? 8 : 12;
    std::uint32_t sum = addSum(0, packet, addressesAt, addressesAt + 2 * addressBytes);
    sum += IPPROTO_TCP + static_cast<std::uint32_t>(tcpLength & 0xFFFF) +
           static_cast<std::uint32_t>(tcpLength >> 16);
    sum = addSum(sum, packet, ipHeader, packet.size());
    setUint16At(packet, ipHeader + 16, foldSum(sum));

    writer->writePacket(std::chrono::system_clock::now(), packet);
}
