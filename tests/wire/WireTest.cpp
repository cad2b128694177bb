// The frame format on the wire. That any cut of a stream decodes alike, and
// that frames survive encoding and decoding, is the decoder_chunking fuzz
// target's.
#include <gtest/gtest.h>

#include <climits>
#include <sstream>

#include "chanlink/wire/ByteVectorReader.h"
#include "support/Bytes.h"
#include "support/Frames.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

// The reader's ordinary reads past the end are the message tables' (every
// short payload relies on them); these positions no payload reaches.
TEST(ByteVectorReader, PositionsFarBeyondTheEndStayNegativeAndWrapWithoutOverflow) {
    const Bytes data = bytes("11 22 33");
    ByteVectorReader reader(data);
    reader.setReadPosition(0xFFFFFFFFu);
    EXPECT_TRUE(reader.readPastEnd());
    EXPECT_EQ(reader.remainingBytes(), INT_MIN);
    EXPECT_EQ(reader.readUint32(), 0x33221100u);  // 32-bit indexes wrap to the start
    EXPECT_EQ(reader.getReadPosition(), 3u);
    EXPECT_TRUE(reader.readBytesAt(2, 0xFFFFFFFFu).empty());  // the end wraps: nothing allocated
}

TEST(Encoder, FramesAndStuffsLengthAndPayloadAndMakesNoEmptyFrame) {
    std::string elevens;
    for (int i = 0; i < 253; ++i) {
        elevens += " 11";
    }
    const std::pair<Bytes, std::string> cases[] = {
        {bytes("0B"), " FF 01 00 00 00 0B FE"},
        {bytes("FF 00"), " FF 02 00 00 00 FD 02 00 FE"},
        {bytes("FD FE FF FC"), " FF 04 00 00 00 FD 00 FD 01 FD 02 FC FE"},
        {Bytes(253, 0x11), " FF FD 00 00 00 00" + elevens + " FE"},  // a stuffed length
        {{}, ""},
    };
    for (const auto& [payload, wire] : cases) {
        Bytes out = bytes("AA");  // appended to
        Encoder().injectFrame(payload, out);
        EXPECT_EQ(hex(out), "AA" + wire);
    }
}

struct Decoding {
    std::string pieces;  // the stream as injected, "|" between calls
    std::vector<std::string> frames;
    std::size_t buffered;  // bytes the decoder holds afterwards
};

const Decoding decodings[] = {
    {"FF 01 00 00 00 0B FE FF 02 00 | 00 00 0C 0D FE", {"0B", "0C 0D"}, 0},
    // Each bad candidate is lost alone: length 0, length 2 carrying 3, an
    // escape followed by 5, a start marker inside.
    {"FF 00 00 00 00 FE FF 02 00 00 00 0A 0B 0C FE FF 01 00 00 00 01 FE FF FD 05 00 00 00 0B FE "
     "FF 02 00 00 00 02 FD 00 FE",
     {"01", "02 FD"},
     0},
    // A frame that lost its end marker swallows the next one: both are lost.
    {"FF 01 00 00 00 0B FF 01 00 00 00 0C FE", {}, 0},
    {"FF 01 00 00 00 FD 03 FE", {}, 0},      // 3 is the first byte no escape stands for
    {"FF 01 00 00 00 0B FD FE", {"0B"}, 0},  // an escape pending at the end marker is dropped
    {"FE FF 01 00 00 00 0B FE", {"0B"}, 0},  // an end marker before the start is noise
    {"01 02 FE 03", {}, 0},
    // One byte of noise before an open frame is kept, and never taken into it.
    {"10 11 12 FF 01 00", {}, 4},
    {"10 FD FF 01 00 | 00 00 0C FE 44", {"0C"}, 0},
    {"FF 01 00 00 00 0B FE 55 FF 01", {"0B"}, 3},
};

TEST(Decoder, CutsFramesInStreamOrderAndDropsOnlyWhatIsBroken) {
    for (const Decoding& row : decodings) {
        Decoder decoder;
        std::vector<std::string> frames;
        std::istringstream pieces(row.pieces);
        for (std::string piece; std::getline(pieces, piece, '|');) {
            decoder.injectBytes(bytes(piece));
            while (decoder.hasFrames()) {
                frames.push_back(hex(decoder.extractFrame()));
            }
        }
        EXPECT_EQ(frames, row.frames) << row.pieces;
        EXPECT_EQ(decoder.bufferedBytes(), row.buffered) << row.pieces;
        EXPECT_EQ(decoder.empty(), row.buffered == 0) << row.pieces;
    }
}
