#pragma once

#include <string>
#include <vector>

// Cursor that reads little-endian fields out of a byte vector it does not own.
//
// Reading never fails: bytes beyond the end of the vector read as 0 and the
// position still advances. Callers find out afterwards with readPastEnd() or by
// comparing remainingBytes() with what they expected; message validation is
// built on exactly this.
class ByteVectorReader {
public:
    // The vector must outlive the reader. The position starts at 0.
    explicit ByteVectorReader(const std::vector<unsigned char>& bytes);
    virtual ~ByteVectorReader();

    ByteVectorReader(const ByteVectorReader&) = default;
    ByteVectorReader& operator=(const ByteVectorReader&) = delete;

    // The byte at index, or 0 past the end. None of the ...At reads move the position.
    unsigned char readUint8At(unsigned int index) const;
    // Little-endian; bytes past the end read as 0.
    unsigned short readUint16At(unsigned int index) const;
    unsigned int readUint32At(unsigned int index) const;
    // Exactly length bytes, zeros past the end. Empty when index + length wraps
    // around 32 bits (is not greater than index), which also covers length 0.
    std::vector<unsigned char> readBytesAt(unsigned int index, unsigned int length) const;
    // Exactly length characters from readBytesAt; no terminator is looked for.
    std::string readStringAt(unsigned int index, unsigned int length) const;

    // Any position is accepted, also one beyond the end.
    void setReadPosition(unsigned int position);
    unsigned int getReadPosition() const { return position; }

    // Read at the position, then advance by the field's width whether or not
    // the bytes were there.
    unsigned char readUint8();
    unsigned short readUint16();
    unsigned int readUint32();
    // Advances by length, wrapping around 32 bits.
    std::vector<unsigned char> readBytes(unsigned int length);

    // True when the position is strictly beyond the end; having consumed every
    // byte exactly is not past the end.
    bool readPastEnd() const;
    // Size minus position, signed: negative after a read past the end. Clamped
    // to the int range for positions set far beyond the end.
    int remainingBytes() const;

private:
    const std::vector<unsigned char>& bytes;
    unsigned int position;
};
