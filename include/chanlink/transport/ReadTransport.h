#pragma once

// The reading side of a non-blocking byte transport.
class ReadTransport {
public:
    virtual ~ReadTransport();

    // Copies at most length bytes into buffer without waiting and returns how
    // many it copied: 0 when nothing is available or the transport cannot
    // read now. Never negative; callers treat 0 or below as nothing read and
    // try again on a later tick.
    virtual int read(void* buffer, int length) = 0;

protected:
    ReadTransport() = default;
    ReadTransport(const ReadTransport&) = default;
    ReadTransport& operator=(const ReadTransport&) = default;
};
