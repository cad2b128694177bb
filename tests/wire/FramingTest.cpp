#include <gtest/gtest.h>

#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"
#include "support/Bytes.h"
#include "support/Frames.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::framed;
using testing_support::hex;

namespace {

std::vector<Bytes> drain(Decoder& decoder) {
    std::vector<Bytes> frames;
    while (decoder.hasFrames()) {
        frames.push_back(decoder.extractFrame());
    }
    return frames;
}

}  // namespace

TEST(Encoder, FramesAndStuffsLengthAndPayload) {
    EXPECT_EQ(hex(framed(bytes("0B"))), "FF 01 00 00 00 0B FE");
    EXPECT_EQ(hex(framed(bytes("FF 00"))), "FF 02 00 00 00 FD 02 00 FE");
    EXPECT_EQ(hex(framed(bytes("FD FE FF FC"))), "FF 04 00 00 00 FD 00 FD 01 FD 02 FC FE");

    const Bytes long_payload(253, 0x11);
    const Bytes encoded = framed(long_payload);
    EXPECT_EQ(Bytes(encoded.begin(), encoded.begin() + 6), bytes("FF FD 00 00 00 00"));
    EXPECT_EQ(encoded.size(), 1 + 5 + 253 + 1u);

    Bytes out = bytes("AA");
    Encoder().injectFrame({}, out);
    EXPECT_EQ(out, bytes("AA"));  // no empty frame exists
}

TEST(Decoder, QueuesAFrameOnlyWhenItsEndMarkerArrives) {
    Decoder decoder;
    const Bytes stream = framed(bytes("0B FF 01"));
    for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
        decoder.injectBytes({stream[i]});
        EXPECT_FALSE(decoder.hasFrames()) << "after byte " << i;
        EXPECT_FALSE(decoder.empty());
    }
    decoder.injectBytes({stream.back()});
    ASSERT_TRUE(decoder.hasFrames());
    EXPECT_EQ(decoder.extractFrame(), bytes("0B FF 01"));
    EXPECT_TRUE(decoder.empty());
    EXPECT_TRUE(decoder.extractFrame().empty());
}

TEST(Decoder, KeepsStreamOrderAndSkipsOnlyTheBadCandidate) {
    Decoder decoder;
    Bytes stream = framed(bytes("01"));
    for (const char* bad : {"FF 00 00 00 00 FE",           // length 0
                            "FF 02 00 00 00 0A 0B 0C FE",  // length says 2, carries 3
                            "FF FD 05 00 00 00 0B FE"}) {  // escape followed by 5
        const Bytes b = bytes(bad);
        stream.insert(stream.end(), b.begin(), b.end());
    }
    const Bytes second = framed(bytes("02 FD"));
    stream.insert(stream.end(), second.begin(), second.end());
    decoder.injectBytes(stream);
    EXPECT_EQ(drain(decoder), (std::vector<Bytes>{bytes("01"), bytes("02 FD")}));
    EXPECT_TRUE(decoder.empty());
}

TEST(Decoder, AFrameWithoutEndMarkerSwallowsTheNextOne) {
    Decoder decoder;
    decoder.injectBytes(bytes("FF 01 00 00 00 0B FF 01 00 00 00 0C FE"));
    EXPECT_FALSE(decoder.hasFrames());
    EXPECT_TRUE(decoder.empty());

    // An escape left pending at the end marker is dropped, not an error.
    decoder.injectBytes(bytes("FF 01 00 00 00 0B FD FE"));
    EXPECT_EQ(drain(decoder), std::vector<Bytes>{bytes("0B")});
}

TEST(Decoder, DropsNoiseButKeepsOneByteOfSlackBeforeAnOpenFrame) {
    Decoder decoder;
    decoder.injectBytes(bytes("01 02 FE 03"));
    EXPECT_TRUE(decoder.empty());

    decoder.injectBytes(bytes("10 11 12 FF 01 00"));
    EXPECT_FALSE(decoder.empty());
    EXPECT_EQ(decoder.bufferedBytes(), 4u);  // the slack byte 12 and the open frame
    decoder.injectBytes(bytes("00 00 0B FE"));
    EXPECT_EQ(drain(decoder), std::vector<Bytes>{bytes("0B")});
    EXPECT_TRUE(decoder.empty());

    // The slack byte is never part of the next frame, whatever its value.
    decoder.injectBytes(bytes("FD FF 01 00"));
    decoder.injectBytes(bytes("00 00 0C FE"));
    EXPECT_EQ(drain(decoder), std::vector<Bytes>{bytes("0C")});
}

TEST(Decoder, ResetDropsAHalfReceivedFrameAndQueuedFrames) {
    Decoder decoder;
    decoder.injectBytes(framed(bytes("01")));
    decoder.injectBytes(bytes("FF 01 00 00"));
    decoder.reset();
    EXPECT_TRUE(decoder.empty());
    EXPECT_FALSE(decoder.hasFrames());
    decoder.injectBytes(bytes("00 0B FE"));  // tail of the dropped frame is noise now
    EXPECT_TRUE(decoder.empty());
    decoder.injectBytes(framed(bytes("02")));
    EXPECT_EQ(drain(decoder), std::vector<Bytes>{bytes("02")});
}
