#pragma once

#include <cstddef>
#include <deque>
#include <vector>

// Cuts a byte stream, delivered in pieces of any size, back into the payloads
// of the frames that Encoder made, in arrival order.
//
// Everything from a 0xFF up to the next 0xFE is one candidate frame. A
// candidate is kept only when it unstuffs cleanly (no 0xFF inside, no bad
// escape) and its length field matches; anything else vanishes without a
// report. Noise between frames is dropped, and a frame whose end marker was
// lost is merged with the next one and both are lost.
//
// Cost is linear in the bytes received, also when a large frame arrives in
// small pieces: a partial frame is never scanned twice.
class Decoder {
public:
    Decoder() = default;
    Decoder(const Decoder&) = default;
    Decoder& operator=(const Decoder&) = default;
    virtual ~Decoder();

    // Appends the bytes to the receive buffer and queues every frame they complete.
    virtual void injectBytes(const std::vector<unsigned char>& bytes);
    virtual bool hasFrames() const;
    // The oldest queued payload, removed from the queue; an empty vector when
    // none is queued (no frame ever has an empty payload).
    virtual std::vector<unsigned char> extractFrame();
    // No queued frame and nothing buffered.
    virtual bool empty() const;
    // Received bytes not yet cut into frames: a frame still open, and at most
    // one byte before it. A peer that never ends its frame makes this grow, so
    // servers watch it to bound what a connection can make them hold.
    std::size_t bufferedBytes() const { return receiveBuffer.size(); }
    // Drops queued frames and buffered bytes, a half-received frame included.
    virtual void reset();

private:
    // Unstuffs the bytes strictly between the markers at start and stop and
    // queues the payload if the candidate is well formed.
    void acceptCandidate(std::size_t start, std::size_t stop);

    std::vector<unsigned char> receiveBuffer;
    std::deque<std::vector<unsigned char>> frames;
};
