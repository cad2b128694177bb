// The decoder against arbitrary streams in arbitrary chunks: it must behave
// exactly like the plain frame-cutting rules below, and never lose a frame
// that corruption did not touch.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"
#include "support/Bytes.h"

using testing_support::Bytes;

namespace {

// The framing rules written out literally: search from the start of the
// buffer each time, erase each candidate, tidy at the end. Slow, obviously right.
class ReferenceDecoder {
public:
    void injectBytes(const Bytes& bytes) {
        buffer.insert(buffer.end(), bytes.begin(), bytes.end());
        auto start = std::find(buffer.begin(), buffer.end(), 0xFF);
        while (start != buffer.end()) {
            const auto stop = std::find(start, buffer.end(), 0xFE);
            if (stop == buffer.end()) {
                break;
            }
            Bytes scratch;
            bool error = false;
            bool escape = false;
            for (auto it = start + 1; it != stop && !error; ++it) {
                if (escape) {
                    error = *it >= 3;
                    scratch.push_back(static_cast<unsigned char>(*it + 253));
                    escape = false;
                } else if (*it == 0xFD) {
                    escape = true;
                } else if (*it == 0xFF) {
                    error = true;
                } else {
                    scratch.push_back(*it);
                }
            }
            if (!error && scratch.size() > 4) {
                const unsigned long long length = scratch[0] | scratch[1] << 8 | scratch[2] << 16 |
                                                  static_cast<unsigned long long>(scratch[3]) << 24;
                if (length + 4 == scratch.size()) {
                    frames.emplace_back(scratch.begin() + 4, scratch.end());
                }
            }
            buffer.erase(start, stop);
            start = std::find(buffer.begin(), buffer.end(), 0xFF);
        }
        const auto first = std::find(buffer.begin(), buffer.end(), 0xFF);
        if (first == buffer.end()) {
            buffer.clear();
        } else if (first != buffer.begin()) {
            buffer.erase(buffer.begin(), first - 1);
        }
    }

    std::vector<Bytes> frames;
    Bytes buffer;
};

Bytes randomBytes(std::mt19937& rng, std::size_t size, bool markersAllowed) {
    std::uniform_int_distribution<int> byte(0, markersAllowed ? 255 : 0xFC);
    Bytes out(size);
    for (auto& b : out) {
        b = static_cast<unsigned char>(byte(rng));
    }
    return out;
}

void append(Bytes& to, const Bytes& from) {
    to.insert(to.end(), from.begin(), from.end());
}

struct Stream {
    Bytes bytes;
    std::vector<Bytes> untouched;  // valid frames that must come out, in order
};

// Valid frames mixed with noise, truncated frames, frames with a corrupted
// byte, and spliced pieces of other frames.
Stream makeStream(std::mt19937& rng, std::size_t targetSize) {
    Stream stream;
    std::uniform_int_distribution<int> kind(0, 9);
    std::uniform_int_distribution<std::size_t> payloadSize(1, 600);
    bool nextIsExposed = false;  // an unterminated frame before it may swallow the next one
    while (stream.bytes.size() < targetSize) {
        Bytes encoded;
        const Bytes payload = randomBytes(rng, payloadSize(rng), true);
        Encoder().injectFrame(payload, encoded);
        switch (kind(rng)) {
            case 0:  // noise that can neither open nor close a frame
                append(stream.bytes, randomBytes(rng, payloadSize(rng) % 40, false));
                continue;
            case 1: {  // frame cut short, no end marker: may merge with what follows
                encoded.resize(
                    std::uniform_int_distribution<std::size_t>(1, encoded.size() - 1)(rng));
                append(stream.bytes, encoded);
                nextIsExposed = true;
                continue;
            }
            case 2: {  // one byte overwritten; the frame may or may not survive
                const std::size_t at =
                    std::uniform_int_distribution<std::size_t>(0, encoded.size() - 1)(rng);
                encoded[at] = static_cast<unsigned char>(rng());
                append(stream.bytes, encoded);
                nextIsExposed = encoded.back() != 0xFE;
                continue;
            }
            case 3: {  // a splice: the tail of another frame
                const std::size_t from =
                    std::uniform_int_distribution<std::size_t>(0, encoded.size() - 1)(rng);
                append(stream.bytes,
                       Bytes(encoded.begin() + static_cast<long>(from), encoded.end()));
                break;
            }
            default:
                append(stream.bytes, encoded);
                if (!nextIsExposed) {
                    stream.untouched.push_back(payload);
                }
                break;
        }
        nextIsExposed = false;
    }
    return stream;
}

bool isSubsequence(const std::vector<Bytes>& needle, const std::vector<Bytes>& haystack) {
    auto it = haystack.begin();
    for (const auto& wanted : needle) {
        it = std::find(it, haystack.end(), wanted);
        if (it == haystack.end()) {
            return false;
        }
        ++it;
    }
    return true;
}

}  // namespace

TEST(DecoderRobustness, MatchesTheFramingRulesOnCorruptedStreamsInRandomChunks) {
    std::mt19937 rng(20261123);
    std::size_t total = 0;
    for (int round = 0; round < 12; ++round) {
        const Stream stream = makeStream(rng, 256 * 1024);
        total += stream.bytes.size();
        Decoder decoder;
        ReferenceDecoder reference;
        std::vector<Bytes> decoded;
        std::uniform_int_distribution<std::size_t> chunk(1, round % 2 ? 64 : 4096);
        for (std::size_t at = 0; at < stream.bytes.size();) {
            const std::size_t end = std::min(stream.bytes.size(), at + chunk(rng));
            const Bytes piece(stream.bytes.begin() + static_cast<long>(at),
                              stream.bytes.begin() + static_cast<long>(end));
            decoder.injectBytes(piece);
            reference.injectBytes(piece);
            while (decoder.hasFrames()) {
                decoded.push_back(decoder.extractFrame());
            }
            ASSERT_EQ(decoded.size(), reference.frames.size()) << "round " << round << " at " << at;
            ASSERT_EQ(decoder.empty(), reference.buffer.empty()) << "round " << round;
            at = end;
        }
        EXPECT_EQ(decoded, reference.frames) << "round " << round;
        EXPECT_TRUE(isSubsequence(stream.untouched, decoded)) << "round " << round;
        EXPECT_GE(decoded.size(), stream.untouched.size());
    }
    EXPECT_GT(total, 3u * 1024 * 1024);
}

TEST(DecoderRobustness, SurvivesPureRandomBytes) {
    std::mt19937 rng(7);
    Decoder decoder;
    ReferenceDecoder reference;
    std::size_t frames = 0;
    for (int i = 0; i < 2000; ++i) {
        const Bytes piece = randomBytes(rng, rng() % 1024, true);
        decoder.injectBytes(piece);
        reference.injectBytes(piece);
        while (decoder.hasFrames()) {
            ASSERT_EQ(decoder.extractFrame(), reference.frames.at(frames++));
        }
        ASSERT_EQ(frames, reference.frames.size());
    }
}
