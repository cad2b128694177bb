#include "chanlink/server/ChannelStore.h"

#include <utility>

ChannelStore::ChannelStore() = default;

ChannelStore::~ChannelStore() = default;

void ChannelStore::addChangeReceiver(std::shared_ptr<Receiver<ChannelValue>> receiver) {
    changeReceivers.addReceiver(std::move(receiver));
}

void ChannelStore::removeChangeReceiver(std::shared_ptr<Receiver<ChannelValue>> receiver) {
    changeReceivers.removeReceiver(std::move(receiver));
}

void ChannelStore::publishChange(const ChannelValue& value) {
    changeReceivers.receive(value);
}
