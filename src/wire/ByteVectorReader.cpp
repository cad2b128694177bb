#include "chanlink/wire/ByteVectorReader.h"

#include <algorithm>
#include <climits>
#include <cstring>

ByteVectorReader::ByteVectorReader(const std::vector<unsigned char>& bytes)
    : bytes(bytes), position(0) {}

ByteVectorReader::~ByteVectorReader() = default;

unsigned char ByteVectorReader::readUint8At(unsigned int index) const {
    return index < bytes.size() ? bytes[index] : 0;
}

unsigned short ByteVectorReader::readUint16At(unsigned int index) const {
    return static_cast<unsigned short>(readUint8At(index) | (readUint8At(index + 1) << 8));
}

unsigned int ByteVectorReader::readUint32At(unsigned int index) const {
    return static_cast<unsigned int>(readUint8At(index)) |
           static_cast<unsigned int>(readUint8At(index + 1)) << 8 |
           static_cast<unsigned int>(readUint8At(index + 2)) << 16 |
           static_cast<unsigned int>(readUint8At(index + 3)) << 24;
}

std::vector<unsigned char> ByteVectorReader::readBytesAt(unsigned int index,
                                                         unsigned int length) const {
    const unsigned int end = index + length;  // wraps on purpose
    if (end <= index) {
        return {};
    }
    std::vector<unsigned char> result(length, 0);
    if (index < bytes.size()) {
        const std::size_t available = std::min<std::size_t>(length, bytes.size() - index);
        std::memcpy(result.data(), bytes.data() + index, available);
    }
    return result;
}

std::string ByteVectorReader::readStringAt(unsigned int index, unsigned int length) const {
    const std::vector<unsigned char> run = readBytesAt(index, length);
    return std::string(run.begin(), run.end());
}

void ByteVectorReader::setReadPosition(unsigned int newPosition) {
    position = newPosition;
}

unsigned char ByteVectorReader::readUint8() {
    const unsigned char value = readUint8At(position);
    position += 1;
    return value;
}

unsigned short ByteVectorReader::readUint16() {
    const unsigned short value = readUint16At(position);
    position += 2;
    return value;
}

unsigned int ByteVectorReader::readUint32() {
    const unsigned int value = readUint32At(position);
    position += 4;
    return value;
}

std::vector<unsigned char> ByteVectorReader::readBytes(unsigned int length) {
    std::vector<unsigned char> run = readBytesAt(position, length);
    position += length;
    return run;
}

bool ByteVectorReader::readPastEnd() const {
    return position > bytes.size();
}

int ByteVectorReader::remainingBytes() const {
    const long long remaining =
        static_cast<long long>(bytes.size()) - static_cast<long long>(position);
    return static_cast<int>(std::clamp<long long>(remaining, INT_MIN, INT_MAX));
}
