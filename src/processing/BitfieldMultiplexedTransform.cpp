#include "chanlink/processing/BitfieldMultiplexedTransform.h"

BitfieldMultiplexedTransform::BitfieldMultiplexedTransform(
    std::shared_ptr<Receiver<GetOutcome>> receiver)
    : Transform<GetOutcome, GetOutcome>(std::move(receiver)) {}

BitfieldMultiplexedTransform::~BitfieldMultiplexedTransform() = default;

void BitfieldMultiplexedTransform::setBitfield(unsigned int bitIndex, unsigned int channelId) {
    bitfields[bitIndex] = channelId;
}

std::list<GetOutcome> BitfieldMultiplexedTransform::transform(const GetOutcome& outcome) {
    const std::vector<unsigned char> header = outcome.getHeader();
    const std::vector<unsigned char> data = outcome.getData();
    std::list<GetOutcome> outcomes;
    for (const auto& [bitIndex, channelId] : bitfields) {
        const unsigned int byteIndex = bitIndex / 8;
        if (byteIndex < data.size()) {
            const auto bit = static_cast<unsigned char>((data[byteIndex] >> (bitIndex % 8)) & 1);
            outcomes.emplace_back(ChannelValue(channelId, header, {bit}));
        } else {
            outcomes.emplace_back(channelId, BitBeyondData);
        }
    }
    return outcomes;
}
