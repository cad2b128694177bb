// For the tools' integration tests (tools_integration.sh, capture.crafted):
//
//   cli_test_helper FILE
//       writes a capture whose segments split frames, hold several frames,
//       a stuffed length, noise and broken frames, made with the library.
#include <chanlink/chanlink.h>

#include <iostream>
#include <string>
#include <vector>

#include "support/Bytes.h"
#include "support/Frames.h"

using testing_support::bytes;
using testing_support::framed;
using Side = CaptureStream::Side;

int main(int argc, char** argv) {
    std::string error;
    auto file = argc == 2 ? PcapWriter::open(argv[1], error) : nullptr;
    if (!file) {
        std::cerr << "usage: cli_test_helper FILE " << error << '\n';
        return 2;
    }
    CaptureStream stream(file, CaptureStream::Endpoint::loopback(40001),
                         CaptureStream::Endpoint::loopback(7301));
    const auto send = [&](Side from, const std::vector<unsigned char>& bytes) {
        stream.record(from, bytes.data(), bytes.size());
    };
    // A login split in three segments, one of them a single byte.
    const auto login = framed(LoginRequest::newInstance("admin", "******"));
    send(Side::Client, {login.begin(), login.begin() + 3});
    send(Side::Client, {login.begin() + 3, login.begin() + 4});
    send(Side::Client, {login.begin() + 4, login.end()});
    // Three frames in one segment.
    auto several = framed(LoginResponse::newInstance(LoginResponse::Success));
    for (const auto& more :
         {framed(SubscriptionResponse::newInstance({5})),
          framed(GetResponse::newInstance({std::make_shared<const ChannelValue>(5, 500)}))}) {
        several.insert(several.end(), more.begin(), more.end());
    }
    send(Side::Server, several);
    // A 253-byte payload, whose length byte FD is stuffed, of FF bytes that
    // are stuffed too; split in the middle.
    const auto big = framed(SetRequest::newInstance(7, std::vector<unsigned char>(246, 0xFF)));
    send(Side::Client, {big.begin(), big.begin() + 100});
    send(Side::Client, {big.begin() + 100, big.end()});
    // Noise, a wrong length, a bad escape and a lost end marker, each
    // followed by a good frame.
    send(Side::Server, bytes("01 02 FF 02 00 00 00 0C 07 00 FE FF 05 00 00 00 0C 07 00 00 00 FE"));
    send(Side::Server, bytes("FF FD 05 00 00 00 0C FE FF 05 00 00 00 0C 08 00 00 00 FE"));
    send(Side::Server, bytes("FF 02 00 00 00 0F 01 FF 02 00 00 00 0F 00 FE"));
    send(Side::Server, framed(ErrorResponse::newInstance(0, 17, 99)));
    stream.close(Side::Client);
    return 0;
}
