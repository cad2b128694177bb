#pragma once

#include <cstddef>
#include <optional>
#include <vector>

class ByteVectorReader;
class ByteVectorWriter;

// The value of one numbered channel: its id, a run of header bytes and a run
// of data bytes. The bytes carry no meaning at this level. A value type:
// copyable and compared by content.
//
// Wire layout, little-endian, positions from the value's first byte:
//   0  channel id, 32-bit
//   4  total length = header length + data length, 16-bit
//   6  header length, 16-bit
//   8  header bytes, then data bytes
class ChannelValue {
public:
    // Takes copies of both runs (or moves them when given temporaries).
    ChannelValue(unsigned int channelId, std::vector<unsigned char> header,
                 std::vector<unsigned char> data);
    // Header of four zero bytes; data is value as four bytes, little-endian.
    ChannelValue(unsigned int channelId, unsigned int value);
    ChannelValue(const ChannelValue& other);
    ChannelValue(ChannelValue&& other) noexcept;
    ChannelValue& operator=(const ChannelValue& other);
    ChannelValue& operator=(ChannelValue&& other) noexcept;
    virtual ~ChannelValue();

    unsigned int getChannelId() const { return channelId; }
    // Copies of the runs.
    std::vector<unsigned char> getHeader() const { return header; }
    std::vector<unsigned char> getData() const { return data; }

    // Appends the wire layout. Lengths are truncated to 16 bits without a
    // check, so a value of more than 65535 bytes in all cannot be read back.
    void writeBytes(ByteVectorWriter& writer) const;
    // Number of bytes writeBytes appends.
    std::size_t wireSize() const { return 8 + header.size() + data.size(); }

    // Reads one value at the reader's position and leaves the reader after it.
    // Returns a new value that the caller owns and must delete, or null when
    // the reader ended up past its end; the position is not rewound then.
    // The data length is total minus header length in 32-bit arithmetic: a
    // header length greater than the total makes it wrap, so the data run
    // reads as empty and the position moves back by the difference.
    static ChannelValue* readBytes(ByteVectorReader& reader);
    // The same as readBytes, but returned by value: nothing to delete.
    static std::optional<ChannelValue> readValue(ByteVectorReader& reader);
    // Moves the reader exactly as readBytes does without making a value.
    // Returns whether readBytes would have given a value.
    static bool skipBytes(ByteVectorReader& reader);

    // Same channel id and data bytes; the header is ignored. This is what
    // counts as a change of a channel's value.
    bool valueEqual(const ChannelValue& other) const;
    // Same channel id, header bytes and data bytes.
    bool operator==(const ChannelValue& other) const;
    bool operator!=(const ChannelValue& other) const { return !(*this == other); }

private:
    unsigned int channelId;
    std::vector<unsigned char> header;
    std::vector<unsigned char> data;
};
