#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>

#include "chanlink/capture/CaptureTransport.h"
#include "support/Bytes.h"
#include "support/TransportPair.h"

using testing_support::Bytes;
using testing_support::bytes;
using testing_support::hex;

namespace {

std::uint32_t be(const Bytes& b, std::size_t at, int width) {
    std::uint32_t value = 0;
    for (int i = 0; i < width; ++i) {
        value = value << 8 | b[at + i];
    }
    return value;
}

}  // namespace

// A connection without a socket, recorded through the wrapper from the write
// that connects it: one run of bytes each way, then the end. Every record
// must be an IPv4/TCP packet continuing its direction's sequence numbers
// (that Wireshark finds the checksums right is tools_integration.sh's,
// scenario capture.tools).
TEST(Capture, PcapLayoutOfOneConnection) {
    const std::string path = testing::TempDir() + "capture_layout.pcap";
    std::string error;
    // A capture that saw no traffic is still a file Wireshark opens: the header alone.
    ASSERT_TRUE(PcapWriter::open(path, error)) << error;
    EXPECT_EQ(std::ifstream(path, std::ios::binary | std::ios::ate).tellg(), 24);
    {
        auto file = PcapWriter::open(path, error);
        ASSERT_TRUE(file) << error;
        auto [client, device] = testing_support::makeTransportPair();
        client->connecting = true;
        CaptureTransport capture(client, file, CaptureStream::Side::Client);
        const Bytes request = bytes("FF 01 00 00 00 0B FE");
        ASSERT_EQ(capture.write(request.data(), 7), 7);
        device->write("\xAB\xCD", 2);
        unsigned char buffer[8];
        ASSERT_EQ(capture.read(buffer, 8), 2);
    }
    std::ifstream in(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
    ASSERT_GE(file.size(), 24u);
    EXPECT_EQ(hex(Bytes(file.begin(), file.begin() + 24)),
              "D4 C3 B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 FF FF 00 00 65 00 00 00");

    const std::vector<int> expectedFlags = {0x02, 0x12, 0x10, 0x18, 0x18, 0x11, 0x11, 0x10};
    const std::vector<std::string> expectedData = {"",      "", "", "FF 01 00 00 00 0B FE",
                                                   "AB CD", "", "", ""};
    std::uint32_t next[2] = {0, 0};  // client, server; 0 until the SYN
    std::size_t at = 24;
    for (std::size_t n = 0; n < expectedFlags.size(); ++n) {
        SCOPED_TRACE("record " + std::to_string(n));
        ASSERT_LE(at + 16, file.size());
        const std::uint32_t length = file[at + 8] | file[at + 9] << 8;
        ASSERT_EQ(file[at + 12] | file[at + 13] << 8, static_cast<int>(length));
        const Bytes p(file.begin() + at + 16, file.begin() + at + 16 + length);
        at += 16 + length;

        // Version 4, the length, TCP, 127.0.0.1 to 127.0.0.1.
        EXPECT_EQ(std::make_tuple(int{p[0]}, be(p, 2, 2), int{p[9]}),
                  std::make_tuple(0x45, length, 6));
        EXPECT_EQ(hex(Bytes(p.begin() + 12, p.begin() + 20)), "7F 00 00 01 7F 00 00 01");

        const bool fromClient = be(p, 20, 2) == 49152;
        EXPECT_EQ(be(p, 20, 2) + be(p, 22, 2), 49152u + 7300u);
        const int flags = p[33];
        EXPECT_EQ(flags, expectedFlags[n]);
        const std::uint32_t seq = be(p, 24, 4);
        std::uint32_t& mine = next[fromClient ? 0 : 1];
        if (flags & 0x02) {
            mine = seq;
        }
        EXPECT_EQ(seq, mine);
        if (flags & 0x10) {
            EXPECT_EQ(be(p, 28, 4), next[fromClient ? 1 : 0]);
        }
        EXPECT_EQ(hex(Bytes(p.begin() + 40, p.end())), expectedData[n]);
        mine += static_cast<std::uint32_t>(length - 40) + (flags & 0x03 ? 1 : 0);
    }
    EXPECT_EQ(at, file.size());
}

// What a capture shows of the client's bytes, given in pieces (that every
// whole login decodes masked, stuffed or not, however cut, is the
// login_redaction fuzz target's).
TEST(Capture, LoginPasswordsAreMasked) {
    const std::string login = "FF 0A 00 00 00 09 09 07 02 03 61 62 78 79 7A FE";
    const std::string masked = "FF 0A 00 00 00 09 09 07 02 03 61 62 2A 2A 2A FE";
    const std::string cut = "FF 0A 00 00 00 09 09 07 02 03 61 62 78";
    const std::string stars = "FF 2A 2A 2A 2A 2A 2A 2A 2A 2A 2A 2A 2A";
    // {the pieces, separated by '|'; what the capture shows}
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"01 FF 03 00 00 00 00 00 00 FE|FF|0A|00 00 00 09 09 07 02 03 61|62 78 79|7A|FE",
         "01 FF 03 00 00 00 00 00 00 FE " + masked},
        // Only a length, no payload: no secret either.
        {"FF 01 00 00 00 FE", "FF 01 00 00 00 FE"},
        // A login cut off by a new frame, and one unfinished at the end.
        {cut + " " + login + "|" + cut, stars + " " + masked + " " + stars},
    };
    for (const auto& [pieces, shown] : cases) {
        LoginRedactor redactor;
        Bytes out;
        std::istringstream in(pieces);
        for (std::string piece; std::getline(in, piece, '|');) {
            const Bytes taken = bytes(piece);
            const Bytes given = redactor.take(taken.data(), taken.size());
            out.insert(out.end(), given.begin(), given.end());
        }
        const Bytes rest = redactor.finish();
        out.insert(out.end(), rest.begin(), rest.end());
        EXPECT_EQ(hex(out), hex(bytes(shown))) << pieces;
    }
}
