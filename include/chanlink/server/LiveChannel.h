#pragma once

#include <chrono>
#include <vector>

class MemoryChannelStore;

// Changes one channel of a MemoryChannelStore on a fixed period, as a
// simulated device's sensors would. Time is whatever the caller passes in,
// so a test can step it without waiting.
//
// Counter: the whole value, read as a little-endian unsigned number, goes up
// by one per period and wraps to zero. Toggle: the low bits 0 .. bits-1 take
// turns, one per period, each toggled in its turn (bit 0, 1, ..., bits-1, 0,
// ...); bits beyond the channel's data are skipped.
class LiveChannel {
public:
    using Clock = std::chrono::steady_clock;
    enum Behaviour : int { Counter = 0, Toggle = 1 };

    // A period below 1 ms counts as 1 ms; bits (Toggle only) below 1 as 1.
    LiveChannel(unsigned int channelId, Behaviour behaviour, std::chrono::milliseconds period,
                unsigned int bits = 1);

    // Starts the clock: the first step is due one period after now.
    void start(Clock::time_point now);
    // Applies every step due by now to the stored value and writes the
    // result with one MemoryChannelStore::update, so the change is published
    // once however many steps were due (after a stall, say). Returns whether
    // it wrote. Does nothing before start() or when the store lacks the
    // channel.
    bool advance(Clock::time_point now, MemoryChannelStore& store);
    // When the next step is due; Clock::time_point::max() before start().
    Clock::time_point nextDue() const;

    unsigned int getChannelId() const { return channelId; }
    Behaviour getBehaviour() const { return behaviour; }
    std::chrono::milliseconds getPeriod() const { return period; }
    unsigned int getBits() const { return bits; }

    // value with one added steps times, little-endian, wrapping.
    static void addToCounter(std::vector<unsigned char>& value, unsigned long long steps);

private:
    void toggleSteps(std::vector<unsigned char>& value, unsigned long long steps);

    unsigned int channelId;
    Behaviour behaviour;
    std::chrono::milliseconds period;
    unsigned int bits;
    bool started = false;
    Clock::time_point startTime;
    unsigned long long stepsApplied = 0;
    unsigned int nextBit = 0;
};
