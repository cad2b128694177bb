#include "chanlink/wire/Decoder.h"

#include <algorithm>
#include <cstring>

#include "chanlink/wire/Encoder.h"

namespace {

constexpr std::size_t LengthFieldSize = 4;

std::size_t findByte(const std::vector<unsigned char>& buffer, std::size_t from, std::size_t to,
                     unsigned char value) {
    if (from >= to) {
        return to;
    }
    const void* hit = std::memchr(buffer.data() + from, value, to - from);
    return hit == nullptr
               ? to
               : static_cast<std::size_t>(static_cast<const unsigned char*>(hit) - buffer.data());
}

}  // namespace

Decoder::~Decoder() = default;

void Decoder::injectBytes(const std::vector<unsigned char>& bytes) {
    // Between calls the buffer holds no end marker after its first start
    // marker (the loop below only stops when there is none), so the search
    // for the open frame's end resumes where the new bytes begin: a large
    // frame arriving in small pieces is scanned once, not once per piece.
    const std::size_t searchedUpTo = receiveBuffer.size();
    receiveBuffer.insert(receiveBuffer.end(), bytes.begin(), bytes.end());
    const std::size_t size = receiveBuffer.size();

    // Between calls the buffer is empty or holds at most one byte before the
    // open frame's start marker, so this search is short.
    std::size_t start = findByte(receiveBuffer, 0, size, Encoder::StartMarker);
    while (start != size) {
        const std::size_t stop =
            findByte(receiveBuffer, std::max(start + 1, searchedUpTo), size, Encoder::EndMarker);
        if (stop == size) {
            break;  // incomplete: wait for more bytes
        }
        acceptCandidate(start, stop);
        // The end marker and everything before it are done with; the next
        // candidate starts at the first start marker after it.
        start = findByte(receiveBuffer, stop + 1, size, Encoder::StartMarker);
    }

    if (start == size) {
        // No open frame: left-over end markers and noise go.
        receiveBuffer.clear();
        return;
    }
    // Keep the open frame and the one byte right before it. Peers see exactly
    // this slack; it is skipped by the next search and goes at the next tidy.
    if (start > 1) {
        receiveBuffer.erase(receiveBuffer.begin(),
                            receiveBuffer.begin() + static_cast<std::ptrdiff_t>(start - 1));
    }
}

void Decoder::acceptCandidate(std::size_t start, std::size_t stop) {
    const std::size_t first = start + 1;
    // A start marker inside the candidate is an error whether or not an
    // escape precedes it.
    if (findByte(receiveBuffer, first, stop, Encoder::StartMarker) != stop) {
        return;
    }

    std::vector<unsigned char> unstuffed;
    unstuffed.reserve(stop - first);
    std::size_t runStart = first;
    while (runStart < stop) {
        const std::size_t escape = findByte(receiveBuffer, runStart, stop, Encoder::Escape);
        unstuffed.insert(unstuffed.end(),
                         receiveBuffer.begin() + static_cast<std::ptrdiff_t>(runStart),
                         receiveBuffer.begin() + static_cast<std::ptrdiff_t>(escape));
        if (escape + 1 >= stop) {
            break;  // no escape, or one left pending at the end marker: dropped
        }
        const unsigned char escaped = receiveBuffer[escape + 1];
        if (escaped >= 3) {
            return;
        }
        unstuffed.push_back(static_cast<unsigned char>(escaped + 253));
        runStart = escape + 2;
    }

    if (unstuffed.size() <= LengthFieldSize) {
        return;
    }
    const unsigned long long length = static_cast<unsigned long long>(unstuffed[0]) |
                                      static_cast<unsigned long long>(unstuffed[1]) << 8 |
                                      static_cast<unsigned long long>(unstuffed[2]) << 16 |
                                      static_cast<unsigned long long>(unstuffed[3]) << 24;
    if (length + LengthFieldSize != unstuffed.size()) {
        return;
    }
    unstuffed.erase(unstuffed.begin(),
                    unstuffed.begin() + static_cast<std::ptrdiff_t>(LengthFieldSize));
    frames.push_back(std::move(unstuffed));
}

bool Decoder::hasFrames() const {
    return !frames.empty();
}

std::vector<unsigned char> Decoder::extractFrame() {
    if (!hasFrames()) {
        return {};
    }
    std::vector<unsigned char> frame = std::move(frames.front());
    frames.pop_front();
    return frame;
}

bool Decoder::empty() const {
    return frames.empty() && receiveBuffer.empty();
}

void Decoder::reset() {
    frames.clear();
    receiveBuffer.clear();
}
