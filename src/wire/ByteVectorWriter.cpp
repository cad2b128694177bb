#include "chanlink/wire/ByteVectorWriter.h"

ByteVectorWriter::ByteVectorWriter(std::vector<unsigned char>& bytes) : bytes(bytes) {}

ByteVectorWriter::~ByteVectorWriter() = default;

void ByteVectorWriter::pushBackUint8(unsigned char value) {
    bytes.push_back(value);
}

void ByteVectorWriter::pushBackUint16(unsigned short value) {
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
    bytes.push_back(static_cast<unsigned char>(value >> 8));
}

void ByteVectorWriter::pushBackUint32(unsigned int value) {
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
    bytes.push_back(static_cast<unsigned char>((value >> 8) & 0xFF));
    bytes.push_back(static_cast<unsigned char>((value >> 16) & 0xFF));
    bytes.push_back(static_cast<unsigned char>(value >> 24));
}

void ByteVectorWriter::pushBackString(const std::string& value) {
    bytes.insert(bytes.end(), value.begin(), value.end());
}

void ByteVectorWriter::pushBackBytes(const std::vector<unsigned char>& value) {
    bytes.insert(bytes.end(), value.begin(), value.end());
}
