#include "chanlink/processing/LatestValueQueue.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

LatestValueQueue::LatestValueQueue(std::size_t maxValues, std::size_t maxBytes)
    : maxValues(maxValues), maxBytes(maxBytes) {}

LatestValueQueue::Entry LatestValueQueue::entryOf(const GetOutcome& value) {
    return {value, value.getHeader().size() + value.getData().size()};
}

void LatestValueQueue::receive(const GetOutcome& outcome) {
    if (!outcome.getSuccess()) {
        return;
    }
    values.push_back(entryOf(outcome));
    heldBytes += values.back().bytes;
    applyBound();
}

void LatestValueQueue::putBack(const std::deque<GetOutcome>& taken) {
    for (auto value = taken.rbegin(); value != taken.rend(); ++value) {
        values.push_front(entryOf(*value));
        heldBytes += values.front().bytes;
    }
    applyBound();
}

std::deque<GetOutcome> LatestValueQueue::takeAll() {
    std::deque<GetOutcome> taken;
    for (Entry& entry : values) {
        taken.push_back(std::move(entry.value));
    }
    values.clear();
    heldBytes = keptValues = keptBytes = 0;
    return taken;
}

void LatestValueQueue::applyBound() {
    if (values.size() <= std::max(maxValues, 2 * keptValues) &&
        heldBytes <= std::max(maxBytes, 2 * keptBytes)) {
        return;
    }
    // Newest first: the first value met of a channel is its latest.
    std::unordered_set<unsigned int> seen;
    std::deque<Entry> kept;
    heldBytes = 0;
    for (auto entry = values.rbegin(); entry != values.rend(); ++entry) {
        if (seen.insert(entry->value.getChannelId()).second) {
            heldBytes += entry->bytes;
            kept.push_front(std::move(*entry));
        } else {
            ++droppedValues;
        }
    }
    values.swap(kept);
    keptValues = values.size();
    keptBytes = heldBytes;
}
