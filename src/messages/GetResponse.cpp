#include "chanlink/messages/GetResponse.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

namespace {

constexpr std::size_t MaxFieldValue = 0xFFFF;

// Once the reader is past its end, every further value reads as zeros: none
// comes back, and each moves the reader exactly 8 bytes on. Jumps over the
// valuesLeft values at once and returns true, so that a short frame with a
// large count costs no more than its length; returns false, having moved
// nothing, when the reader is not past its end or the jump would wrap the
// 32-bit position (which only a payload of about 4 GiB could reach).
bool skipValuesPastEnd(ByteVectorReader& reader, unsigned int valuesLeft) {
    const unsigned long long end =
        reader.getReadPosition() + 8ULL * static_cast<unsigned long long>(valuesLeft);
    if (!reader.readPastEnd() || end > 0xFFFFFFFFULL) {
        return false;
    }
    reader.setReadPosition(static_cast<unsigned int>(end));
    return true;
}

}  // namespace

GetResponse::GetResponse(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool GetResponse::validate(const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    if (reader.readUint8() != Code) {
        return false;
    }
    // Walks the values exactly as extractChannelValues does, without making
    // them: only where the reader ends up matters here.
    reader.setReadPosition(CountPosition);
    const unsigned int count = reader.readUint16();
    for (unsigned int left = count; left > 0; --left) {
        ChannelValue::skipBytes(reader);
        if (skipValuesPastEnd(reader, left - 1)) {
            break;
        }
    }
    return reader.remainingBytes() == 0;
}

std::shared_ptr<const Message> GetResponse::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<GetResponse>(payload);
}

std::shared_ptr<const Message> GetResponse::newInstance(
    const std::vector<std::shared_ptr<const ChannelValue>>& values) {
    if (values.size() > MaxFieldValue) {
        return nullptr;
    }
    std::size_t size = CountPosition + 2;
    for (const auto& value : values) {
        // Checked here rather than left to validate: a value whose lengths
        // were truncated could otherwise happen to read back as other values.
        if (!value || value->wireSize() > MaxFieldValue + 8) {
            return nullptr;
        }
        size += value->wireSize();
    }
    std::vector<unsigned char> payload = newFrame(Code);
    payload.reserve(size);
    ByteVectorWriter writer(payload);
    writer.pushBackUint16(static_cast<unsigned short>(values.size()));
    for (const auto& value : values) {
        value->writeBytes(writer);
    }
    return readBuilt<GetResponse>(std::move(payload));
}

std::vector<ChannelValue> GetResponse::extractChannelValues(ByteVectorReader& reader) {
    reader.setReadPosition(CountPosition);
    const unsigned int count = reader.readUint16();
    std::vector<ChannelValue> values;
    // Every value that comes back takes at least 8 bytes, so a count that the
    // bytes cannot hold reserves no more than they can.
    const int remaining = reader.remainingBytes();
    values.reserve(std::min<std::size_t>(count, remaining > 0 ? remaining / 8 : 0));
    for (unsigned int left = count; left > 0; --left) {
        std::optional<ChannelValue> value = ChannelValue::readValue(reader);
        if (value) {
            values.push_back(std::move(*value));
        } else if (skipValuesPastEnd(reader, left - 1)) {
            break;
        }
    }
    return values;
}

std::vector<ChannelValue> GetResponse::getChannelValues() const {
    ByteVectorReader reader(getPayload());
    return extractChannelValues(reader);
}
