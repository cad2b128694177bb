#include "chanlink/wire/Encoder.h"

#include <algorithm>

namespace {

bool needsStuffing(unsigned char value) {
    return value >= Encoder::Escape;
}

}  // namespace

Encoder::~Encoder() = default;

void Encoder::injectStuffedByte(unsigned char value, std::vector<unsigned char>& output) {
    if (needsStuffing(value)) {
        output.push_back(Escape);
        output.push_back(static_cast<unsigned char>(value + 3));
    } else {
        output.push_back(value);
    }
}

void Encoder::injectFrame(const std::vector<unsigned char>& payload,
                          std::vector<unsigned char>& output) const {
    if (payload.empty()) {
        return;
    }
    // Enough for an unstuffed payload; stuffing grows the vector as needed.
    output.reserve(output.size() + payload.size() + 10);
    output.push_back(StartMarker);
    const auto size = static_cast<unsigned int>(payload.size());
    for (int shift = 0; shift < 32; shift += 8) {
        injectStuffedByte(static_cast<unsigned char>((size >> shift) & 0xFF), output);
    }
    // Copy runs of plain bytes in bulk; only bytes above 0xFC go one by one.
    auto runStart = payload.begin();
    while (runStart != payload.end()) {
        const auto runEnd = std::find_if(runStart, payload.end(), needsStuffing);
        output.insert(output.end(), runStart, runEnd);
        if (runEnd == payload.end()) {
            break;
        }
        injectStuffedByte(*runEnd, output);
        runStart = runEnd + 1;
    }
    output.push_back(EndMarker);
}
