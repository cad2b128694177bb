#pragma once

// The writing side of a non-blocking byte transport.
class WriteTransport {
public:
    virtual ~WriteTransport();

    // Accepts at most length bytes from buffer without waiting and returns
    // how many it accepted, taken from the start of buffer; the caller keeps
    // the rest and offers it again later. 0 when nothing was accepted. Never
    // negative; callers treat 0 or below as nothing written.
    virtual int write(const void* buffer, int length) = 0;

protected:
    WriteTransport() = default;
    WriteTransport(const WriteTransport&) = default;
    WriteTransport& operator=(const WriteTransport&) = default;
};
