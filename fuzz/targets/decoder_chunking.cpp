// The decoder fed an arbitrary byte stream in arbitrary pieces.
//
// Input: byte 0 gives the number n of piece sizes, (byte 0 mod 8) + 1; the
// next n bytes are the piece sizes in bytes (0 makes an empty call), used in
// turn over and over; everything after them is the stream.
//
// Invariants: how the stream is cut into pieces, and when frames are taken
// out, changes nothing; no frame is empty; the decoder holds nothing once
// every frame is taken and no frame is open; the frames, framed again by the
// encoder, decode to the same frames; a reset leaves nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzCheck.h"
#include "support/Frames.h"

using testing_support::framed;
using testing_support::framesIn;
using Bytes = std::vector<unsigned char>;

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
    for (std::size_t offset = 0, piece = 0; offset < stream.size(); ++piece) {
        const std::size_t length =
            std::min(pieceSizes[piece % pieceSizes.size()], stream.size() - offset);
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(offset);
        decoder.injectBytes(Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)));
        offset += length;
        while (decoder.hasFrames()) {
            frames.push_back(decoder.extractFrame());
            FUZZ_CHECK(!frames.back().empty());
        }
        FUZZ_CHECK(decoder.extractFrame().empty());
    }
    // A frame is open when a start marker has no end marker after it.
    const auto lastEnd = std::find(stream.rbegin(), stream.rend(), Encoder::EndMarker);
    const bool open = std::find(stream.rbegin(), lastEnd, Encoder::StartMarker) != lastEnd;
    FUZZ_CHECK(decoder.empty() == !open);
    FUZZ_CHECK(frames == framesIn(stream));

    Bytes reframed;
    for (const Bytes& frame : frames) {
        const Bytes one = framed(frame);
        reframed.insert(reframed.end(), one.begin(), one.end());
    }
    FUZZ_CHECK(framesIn(reframed) == frames);

    decoder.reset();
    FUZZ_CHECK(decoder.empty() && !decoder.hasFrames());
    return 0;
}
