#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "chanlink/flow/Receiver.h"
#include "chanlink/processing/ChannelCache.h"
#include "chanlink/processing/LatestValueQueue.h"

class PythonClient;

// The iterator behind Client.watch(): subscribes to the channels through the
// client's subscriptions and turns their values into changes with a
// ChannelCache, until it has given count changes, its time is up, or it is
// closed. Values wait in a LatestValueQueue until next() turns them into
// changes, so a device pushing faster than Python iterates costs bounded
// memory: past the bound, a channel's intermediate values are skipped and
// the next change goes from the last value given to the latest one. Like
// PythonClient, call it without the GIL.
class ChangeWatch {
public:
    struct Change {
        unsigned int channel;
        std::optional<std::vector<unsigned char>> previous;  // none for the first value
        std::vector<unsigned char> value;
    };

    // count: changes to give, none for no limit; duration: from now,
    // milliseconds::max() for no limit.
    ChangeWatch(std::shared_ptr<PythonClient> client, std::vector<unsigned int> channels,
                std::optional<std::size_t> count, std::chrono::milliseconds duration);
    ~ChangeWatch();

    ChangeWatch(const ChangeWatch&) = delete;
    ChangeWatch& operator=(const ChangeWatch&) = delete;

    // The next change, waiting for it as long as the watch lasts; none once
    // the watch is over (it is then closed).
    std::optional<Change> next();
    // Ends the subscriptions; next() gives nothing more.
    void close();

private:
    std::shared_ptr<PythonClient> client;
    std::vector<unsigned int> channels;
    std::optional<std::size_t> left;
    std::chrono::steady_clock::time_point start;
    std::chrono::milliseconds duration;
    std::shared_ptr<LatestValueQueue> values = std::make_shared<LatestValueQueue>();
    std::shared_ptr<ChannelCache> cache = std::make_shared<ChannelCache>();
    std::shared_ptr<Receiver<ChannelCache::Change>> changeReceiver;
    // The changes of the values taken from the queue, not given yet.
    std::deque<Change> changes;
    bool open = true;
};
