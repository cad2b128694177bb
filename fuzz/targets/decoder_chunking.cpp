// The decoder fed an arbitrary byte stream in arbitrary pieces.
//
// Input: byte 0 gives the number n of piece sizes, (byte 0 mod 8) + 1; the
// next n bytes are the piece sizes in bytes (0 makes an empty call), used in
// turn over and over; everything after them is the stream.
//
// Invariants: how the stream is cut into pieces, and when frames are taken
// out, changes nothing; no frame is empty; the decoder holds nothing once
// every frame is taken and no frame is open; the frames, framed again by the
// encoder, decode to the same frames.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"
#include "support/Frames.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::vector<Bytes> takeFrames(Decoder& decoder) {
    std::vector<Bytes> frames;
    while (decoder.hasFrames()) {
        frames.push_back(decoder.extractFrame());
    }
    FUZZ_CHECK(decoder.extractFrame().empty());
    return frames;
}

// Whether the stream ends inside a frame: a start marker with no end marker after it.
bool endsInsideFrame(const Bytes& stream) {
    const auto lastEnd = std::find(stream.rbegin(), stream.rend(), Encoder::EndMarker);
    return std::find(stream.rbegin(), lastEnd, Encoder::StartMarker) != lastEnd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t sizeCount = std::min<std::size_t>(data[0] % 8 + 1, size - 1);
    std::vector<std::size_t> pieceSizes(data + 1, data + 1 + sizeCount);
    const Bytes stream(data + 1 + sizeCount, data + size);
    if (std::all_of(pieceSizes.begin(), pieceSizes.end(), [](std::size_t s) { return s == 0; })) {
        pieceSizes.assign(1, stream.size());  // guarantees progress
    }

    // Pieces in turn; frames taken after every call, as the incoming endpoint does.
    Decoder decoder;
    std::vector<Bytes> frames;
    std::size_t offset = 0;
    for (std::size_t piece = 0; offset < stream.size(); ++piece) {
        const std::size_t length =
            std::min(pieceSizes[piece % pieceSizes.size()], stream.size() - offset);
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(offset);
        decoder.injectBytes(Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)));
        offset += length;
        const std::vector<Bytes> taken = takeFrames(decoder);
        frames.insert(frames.end(), taken.begin(), taken.end());
    }
    FUZZ_CHECK(decoder.empty() == !endsInsideFrame(stream));

    FUZZ_CHECK(frames == testing_support::framesIn(stream));

    Bytes reframed;
    for (const Bytes& frame : frames) {
        FUZZ_CHECK(!frame.empty());
        const Bytes one = testing_support::framed(frame);
        reframed.insert(reframed.end(), one.begin(), one.end());
    }
    FUZZ_CHECK(testing_support::framesIn(reframed) == frames);

    decoder.reset();
    FUZZ_CHECK(decoder.empty() && !decoder.hasFrames());
    return 0;
}
