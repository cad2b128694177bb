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
        changes.push_back(std::move(item));
    });
    cache->addReceiver(changeReceiver);
    std::sort(this->channels.begin(), this->channels.end());
    this->channels.erase(std::unique(this->channels.begin(), this->channels.end()),
                         this->channels.end());
    this->client->locked([this] {
        for (unsigned int channel : this->channels) {
            this->client->client().addSubscription(channel, values);
        }
    });
}

ChangeWatch::~ChangeWatch() {
    close();
}

std::optional<ChangeWatch::Change> ChangeWatch::next() {
    auto change = client->locked([this]() -> std::optional<Change> {
        const auto timeLeft = [this] {
            if (duration == std::chrono::milliseconds::max()) {
                return duration;
            }
            const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start);
            return std::max(std::chrono::milliseconds(0), duration - spent);
        };
        // A stopped client (closed, or lost with reconnect off) brings nothing more.
        const auto stopped = [this] {
            return client->client().getState() == ReconnectingClient::Stopped;
        };
        bool waited = false;
        while (open && left != std::size_t(0) && changes.empty()) {
            for (const GetOutcome& value : values->takeAll()) {
                cache->receive(value);  // a repeated value makes no change
            }
            if (!changes.empty() || stopped() || (waited && timeLeft().count() == 0)) {
                break;
            }
            client->tickUntil([this, &stopped] { return !values->empty() || stopped(); },
                              timeLeft());
            waited = true;
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
                client->client().removeSubscription(channel, values);
            }
            open = false;
        }
    });
}
