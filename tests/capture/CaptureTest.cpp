#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "chanlink/capture/CaptureTransport.h"
#include "support/Bytes.h"
#include "support/TransportPair.h"

using testing_support::Bytes;
using testing_support::bytes;
using testing_support::hex;

// A connection without a socket, recorded through the wrapper from the write
// that connects it: the handshake, one run of bytes each way, then the end.
// (That Wireshark reads every record as IPv4 or IPv6 TCP with the right
// checksums and sequence numbers is tools_integration.sh's, capture.tools.)
TEST(Capture, PcapLayoutOfOneConnection) {
    const std::string path = testing::TempDir() + "capture_layout.pcap";
    std::string error;
    // A capture that saw no traffic is still a file Wireshark opens: the
    // header alone. Its descriptor goes with it, even 0 (standard input closed).
    const int input = ::dup(0);
    ::close(0);
    EXPECT_TRUE(PcapWriter::open(path, error)) << error;  // no early return: 0 is restored below
    EXPECT_EQ(std::ifstream(path, std::ios::binary | std::ios::ate).tellg(), 24);
    EXPECT_EQ(::fcntl(0, F_GETFD), -1);
    ::dup2(input, 0);
    ::close(input);
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
        client->closed = true;  // the device ended it, seen by a write
        EXPECT_EQ(capture.write(request.data(), 7), 0);
    }
    std::ifstream in(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
    ASSERT_GE(file.size(), 24u);
    EXPECT_EQ(hex(Bytes(file.begin(), file.begin() + 24)),
              "D4 C3 B2 A1 02 00 04 00 00 00 00 00 00 00 00 00 FF FF 00 00 65 00 00 00");

    // Each record's TCP flags and payload, and where the first one goes.
    std::vector<std::string> records;
    std::string endpoints;
    for (std::size_t at = 24; at + 16 <= file.size();) {
        const std::size_t length = file[at + 8] | file[at + 9] << 8;
        ASSERT_TRUE(length >= 40 && at + 16 + length <= file.size()) << at;
        const Bytes p(file.begin() + at + 16, file.begin() + at + 16 + length);
        at += 16 + length;
        endpoints = endpoints.empty() ? hex(Bytes(p.begin() + 12, p.begin() + 24)) : endpoints;
        const char* direction = p[23] == 0x84 ? ">" : "<";  // to port 7300, or from it
        records.push_back(std::to_string(p[33]) + direction + hex(Bytes(p.begin() + 40, p.end())));
    }
    EXPECT_EQ(endpoints, "7F 00 00 01 7F 00 00 01 C0 00 1C 84");  // 127.0.0.1:49152 to :7300
    EXPECT_EQ(records, (std::vector<std::string>{"2>", "18<", "16>", "24>FF 01 00 00 00 0B FE",
                                                 "24<AB CD", "17<", "17>", "16<"}));
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
    // A frame longer than any login is masked as it comes, not held.
    Bytes longest = bytes("FF 00 08 00 00 09");
    longest.resize(LoginRedactor::MaxLoginFrameBytes + 1, 0x41);
    EXPECT_EQ(LoginRedactor().take(longest.data(), longest.size()).size(), longest.size());
}
