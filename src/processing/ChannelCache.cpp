#include "chanlink/processing/ChannelCache.h"

ChannelCache::ChannelCache() = default;

ChannelCache::~ChannelCache() = default;

void ChannelCache::receive(const GetOutcome& outcome) {
    if (!outcome.getSuccess()) {
        return;
    }
    const Value previous = values[outcome.getChannelId()];
    ChannelValue newValue = outcome.getChannelValue();
    if (previous && previous->valueEqual(newValue)) {
        return;
    }
    Value& entry = values[newValue.getChannelId()];
    Change change(entry, std::make_shared<const ChannelValue>(std::move(newValue)));
    entry = change.second;
    receivers.receive(change);
}

ChannelCache::Value ChannelCache::getChannel(unsigned int channelId) {
    return values[channelId];
}

bool ChannelCache::hasChannel(unsigned int channelId) const {
    return values.find(channelId) != values.end();
}

void ChannelCache::addReceiver(std::shared_ptr<Receiver<Change>> receiver) {
    receivers.addReceiver(std::move(receiver));
}

void ChannelCache::removeReceiver(std::shared_ptr<Receiver<Change>> receiver) {
    receivers.removeReceiver(std::move(receiver));
}
