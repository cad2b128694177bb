#pragma once

#include <string>
#include <vector>

// Appends little-endian fields to a byte vector it does not own. It keeps no
// position: every write goes to the end of the vector.
class ByteVectorWriter {
public:
    // The vector must outlive the writer.
    explicit ByteVectorWriter(std::vector<unsigned char>& bytes);
    virtual ~ByteVectorWriter();

    ByteVectorWriter(const ByteVectorWriter&) = default;
    ByteVectorWriter& operator=(const ByteVectorWriter&) = delete;

    void pushBackUint8(unsigned char value);
    // Low byte first.
    void pushBackUint16(unsigned short value);
    // Bits 0-7 first, 24-31 last.
    void pushBackUint32(unsigned int value);
    // The characters as bytes, without length prefix or terminator.
    void pushBackString(const std::string& value);
    void pushBackBytes(const std::vector<unsigned char>& value);

private:
    std::vector<unsigned char>& bytes;
};
