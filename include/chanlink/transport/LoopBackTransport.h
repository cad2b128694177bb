#pragma once

#include <vector>

#include "chanlink/transport/Transport.h"

// An in-memory transport that reads back what was written to it, in the order
// written, holding at most capacity bytes. A session built on one loop-back
// reads its own output, which tests whole pipelines without a network.
class LoopBackTransport : public Transport {
public:
    // capacity: the most bytes held unread. A capacity of 0 or below makes a
    // transport that accepts nothing.
    explicit LoopBackTransport(int capacity);
    ~LoopBackTransport() override;

    // Copies the oldest min(length, buffered) bytes into buffer and removes
    // them; returns their number. A negative length counts as a very large
    // unsigned number, so it reads every buffered byte and buffer must have
    // room for all of them. Returns 0 and touches nothing when no byte is
    // buffered, length is 0, or buffer is null.
    int read(void* buffer, int length) override;

    // Appends the first min(length, room) bytes of buffer, where room is the
    // capacity minus the bytes buffered, and returns their number: 0 when
    // full. A negative length, or a null buffer with a non-zero length,
    // returns 0 and takes nothing.
    int write(const void* buffer, int length) override;

    // Does nothing: a loop-back has no work of its own.
    void tick() override;

    int getCapacity() const { return capacity; }
    // Bytes written and not yet read.
    int bufferedBytes() const { return static_cast<int>(buffer.size()); }

private:
    // Oldest first; used as a first-in, first-out queue.
    std::vector<unsigned char> buffer;
    int capacity;
};
