#include "ChangeWatch.h"

#include <algorithm>
#include <utility>

#include "PythonClient.h"
#include "chanlink/flow/FunctionReceiver.h"

ChangeWatch::ChangeWatch(std::shared_ptr<PythonClient> client, std::vector<unsigned int> channels,
                         std::optional<std::size_t> count, std::chrono::milliseconds duration)
    : client(std::move(client)),
      channels(std::move(channels)),
      left(count),
      start(std::chrono::steady_clock::now()),
      duration(duration) {
    // The cache is only fed inside the client's ticks, with its lock held.
    changeReceiver = makeReceiver<ChannelCache::Change>([this](const ChannelCache::Change& change) {
        Change item{change.second->getChannelId(), std::nullopt, change.second->getData()};
        if (change.first) {
            item.previous = change.first->getData();
        }
        if (changes.size() >= PythonClient::MaxPendingValues) {
            changes.pop_front();
        }
        changes.push_back(std::move(item));
    });
    cache->addReceiver(changeReceiver);
    std::sort(this->channels.begin(), this->channels.end());
    this->channels.erase(std::unique(this->channels.begin(), this->channels.end()),
                         this->channels.end());
    this->client->locked([this] {
        for (unsigned int channel : this->channels) {
            this->client->client().addSubscription(channel, cache);
        }
    });
}

ChangeWatch::~ChangeWatch() {
    close();
}

std::optional<ChangeWatch::Change> ChangeWatch::next() {
    auto change = client->locked([this]() -> std::optional<Change> {
        if (open && left != std::size_t(0) && changes.empty()) {
            auto timeLeft = duration;
            if (duration != std::chrono::milliseconds::max()) {
                const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::steady_clock::now() - start);
                timeLeft = std::max(std::chrono::milliseconds(0), duration - spent);
            }
            // A stopped client (closed, or lost with reconnect off) brings nothing more.
            client->tickUntil(
                [this] {
                    return !changes.empty() ||
                           client->client().getState() == ReconnectingClient::Stopped;
                },
                timeLeft);
        }
        if (!open || left == std::size_t(0) || changes.empty()) {
            return std::nullopt;
        }
        Change change = std::move(changes.front());
        changes.pop_front();
        if (left) {
            --*left;
        }
        return change;
    });
    if (!change) {
        close();
    }
    return change;
}

void ChangeWatch::close() {
    client->locked([this] {
        if (open) {
            for (unsigned int channel : channels) {
                client->client().removeSubscription(channel, cache);
            }
            open = false;
        }
    });
}
