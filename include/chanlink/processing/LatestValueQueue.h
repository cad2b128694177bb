#pragma once

#include <cstddef>
#include <deque>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Receiver.h"

// Channel values waiting for an application that takes them out later (a
// poll loop, a consumer that is busy elsewhere), in arrival order, with a
// bound. A device may push faster than the application reads: when more than
// maxValues values, or more than maxBytes bytes of header and data, wait, the
// queue keeps only the latest value of each channel, in the order those
// arrived, and counts the rest as dropped. The newest value of every channel,
// which is what a reader of current values needs, is never dropped. Only
// when the latest values alone exceed the bound (more channels than it has
// room for) does the queue hold more: up to twice what they take.
//
// Failed outcomes carry no value and are not queued.
class LatestValueQueue : public Receiver<GetOutcome> {
public:
    static constexpr std::size_t DefaultMaxValues = 100000;
    static constexpr std::size_t DefaultMaxBytes = 64 * 1024 * 1024;

    explicit LatestValueQueue(std::size_t maxValues = DefaultMaxValues,
                              std::size_t maxBytes = DefaultMaxBytes);

    // Appends a successful outcome, then applies the bound.
    void receive(const GetOutcome& outcome) override;
    // Puts values taken out earlier back in front, in their order (a
    // consumer that could not deliver them all), then applies the bound.
    void putBack(const std::deque<GetOutcome>& taken);
    // Every waiting value, oldest first; the queue is empty afterwards.
    std::deque<GetOutcome> takeAll();

    bool empty() const { return values.empty(); }
    std::size_t size() const { return values.size(); }
    // Header and data bytes of the waiting values.
    std::size_t bytes() const { return heldBytes; }
    // Values dropped so far in favour of a newer one of the same channel.
    std::size_t dropped() const { return droppedValues; }

private:
    struct Entry {
        GetOutcome value;
        std::size_t bytes;
    };
    static Entry entryOf(const GetOutcome& value);
    void applyBound();

    std::size_t maxValues;
    std::size_t maxBytes;
    std::deque<Entry> values;
    std::size_t heldBytes = 0;
    std::size_t droppedValues = 0;
    // What the last thinning kept: the next one waits until the queue has
    // doubled past it, so a queue of latest values alone is not thinned on
    // every arrival.
    std::size_t keptValues = 0;
    std::size_t keptBytes = 0;
};
