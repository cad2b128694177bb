#pragma once

#include <list>
#include <map>
#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/ReasonCode.h"

// Splits one channel whose data is a bit set into virtual channels, one per
// configured bit, each carrying a single data byte 0x00 or 0x01 and the
// source's header bytes. Bit index i is bit (i mod 8) of data byte (i div 8),
// counting from the least significant bit of the first byte.
class BitfieldMultiplexedTransform : public Transform<GetOutcome, GetOutcome> {
public:
    // Reason code of a virtual channel whose bit lies beyond the data.
    static constexpr unsigned char BitBeyondData = ReasonCode::BitBeyondData;

    explicit BitfieldMultiplexedTransform(std::shared_ptr<Receiver<GetOutcome>> receiver);
    ~BitfieldMultiplexedTransform() override;

    // Delivers bit bitIndex as channel channelId, replacing an earlier
    // channel for the same bit. Several bits may share a channel.
    void setBitfield(unsigned int bitIndex, unsigned int channelId);

    // One outcome per configured bit, in ascending bit order: the bit's value,
    // or a failure with reason 2 for a bit beyond the data. The incoming
    // channel id and success are not examined.
    std::list<GetOutcome> transform(const GetOutcome& outcome) override;

private:
    std::map<unsigned int, unsigned int> bitfields;
};
