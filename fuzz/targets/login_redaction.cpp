// The capture's password masking fed an arbitrary client byte stream in
// pieces of one size.
//
// Input: byte 0 gives the piece size, (byte 0 mod 16) + 1; the rest is the
// stream.
//
// Invariants: the cut changes nothing; the masked stream decodes to the
// frames the original decodes to, except that each login's password is '*'
// bytes and other frames of opcode 9 are gone.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/capture/LoginRedactor.h"
#include "chanlink/messages/LoginRequest.h"
#include "support/Frames.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes redact(const Bytes& stream, std::size_t pieceSize) {
    LoginRedactor redactor;
    Bytes out;
    for (std::size_t at = 0; at < stream.size(); at += pieceSize) {
        const Bytes shown =
            redactor.take(stream.data() + at, std::min(pieceSize, stream.size() - at));
        out.insert(out.end(), shown.begin(), shown.end());
    }
    const Bytes rest = redactor.finish();
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const Bytes stream(data + 1, data + size);
    const Bytes masked = redact(stream, data[0] % 16 + 1);
    FUZZ_CHECK(masked == redact(stream, stream.size() + 1));

    std::vector<Bytes> expected;
    for (Bytes frame : testing_support::framesIn(stream)) {
        if (frame[0] == UserAccountRequest::Code) {
            if (!LoginRequest::validate(frame)) {
                continue;
            }
            // The password follows the opcodes, the magic byte, both lengths and the username.
            std::fill(frame.begin() + 5 + frame[3], frame.end(), '*');
        }
        expected.push_back(frame);
    }
    FUZZ_CHECK(testing_support::framesIn(masked) == expected);
    return 0;
}
