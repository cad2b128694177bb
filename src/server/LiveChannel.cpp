#include "chanlink/server/LiveChannel.h"

#include <optional>

#include "chanlink/server/MemoryChannelStore.h"

LiveChannel::LiveChannel(unsigned int channelId, Behaviour behaviour,
                         std::chrono::milliseconds period, unsigned int bits)
    : channelId(channelId),
      behaviour(behaviour),
      period(period.count() < 1 ? std::chrono::milliseconds(1) : period),
      bits(bits < 1 ? 1 : bits) {}

void LiveChannel::start(Clock::time_point now) {
    started = true;
    startTime = now;
    stepsApplied = 0;
}

bool LiveChannel::advance(Clock::time_point now, MemoryChannelStore& store) {
    if (!started || now < startTime) {
        return false;
    }
    const auto due = static_cast<unsigned long long>((now - startTime) / period);
    if (due <= stepsApplied) {
        return false;
    }
    const unsigned long long steps = due - stepsApplied;
    stepsApplied = due;
    const std::optional<ChannelValue> current = store.getValue(channelId);
    if (!current) {
        return false;
    }
    std::vector<unsigned char> value = current->getData();
    if (behaviour == Counter) {
        addToCounter(value, steps);
    } else {
        toggleSteps(value, steps);
    }
    return store.update(channelId, value);
}

LiveChannel::Clock::time_point LiveChannel::nextDue() const {
    if (!started) {
        return Clock::time_point::max();
    }
    return startTime + period * static_cast<long long>(stepsApplied + 1);
}

void LiveChannel::addToCounter(std::vector<unsigned char>& value, unsigned long long steps) {
    unsigned long long carry = steps;
    for (unsigned char& byte : value) {
        if (carry == 0) {
            break;
        }
        const unsigned long long sum = byte + (carry & 0xFF);
        byte = static_cast<unsigned char>(sum & 0xFF);
        carry = (carry >> 8) + (sum >> 8);
    }
}

void LiveChannel::toggleSteps(std::vector<unsigned char>& value, unsigned long long steps) {
    // Every 2 * bits steps toggle each bit twice and bring the turn back
    // round, so only the remainder needs doing.
    const unsigned long long remainder = steps % (2ULL * bits);
    for (unsigned long long i = 0; i < remainder; ++i) {
        const unsigned int byte = nextBit / 8;
        if (byte < value.size()) {
            value[byte] = static_cast<unsigned char>(value[byte] ^ (1u << (nextBit % 8)));
        }
        nextBit = (nextBit + 1) % bits;
    }
}
