#include "chanlink/server/MemoryChannelStore.h"

#include <utility>

#include "chanlink/messages/ReasonCode.h"

MemoryChannelStore::MemoryChannelStore() = default;

MemoryChannelStore::~MemoryChannelStore() = default;

bool MemoryChannelStore::addChannel(unsigned int channelId, std::vector<unsigned char> initial,
                                    bool readOnly, std::string name) {
    if (initial.size() > MaxChannelSize) {
        return false;
    }
    Channel& channel = channels[channelId];
    channel.data = std::move(initial);
    channel.readOnly = readOnly;
    channel.name = std::move(name);
    return true;
}

bool MemoryChannelStore::removeChannel(unsigned int channelId) {
    return channels.erase(channelId) != 0;
}

bool MemoryChannelStore::hasChannel(unsigned int channelId) const {
    return channels.count(channelId) != 0;
}

std::vector<unsigned int> MemoryChannelStore::channelIds() const {
    std::vector<unsigned int> ids;
    ids.reserve(channels.size());
    for (const auto& entry : channels) {
        ids.push_back(entry.first);
    }
    return ids;
}

std::optional<std::size_t> MemoryChannelStore::channelSize(unsigned int channelId) const {
    const auto found = channels.find(channelId);
    if (found == channels.end()) {
        return std::nullopt;
    }
    return found->second.data.size();
}

bool MemoryChannelStore::isReadOnly(unsigned int channelId) const {
    const auto found = channels.find(channelId);
    return found != channels.end() && found->second.readOnly;
}

std::string MemoryChannelStore::channelName(unsigned int channelId) const {
    const auto found = channels.find(channelId);
    return found == channels.end() ? std::string() : found->second.name;
}

std::optional<ChannelValue> MemoryChannelStore::getValue(unsigned int channelId) const {
    const auto found = channels.find(channelId);
    if (found == channels.end()) {
        return std::nullopt;
    }
    return ChannelValue(channelId, {}, found->second.data);
}

unsigned char MemoryChannelStore::setValue(unsigned int channelId,
                                           const std::vector<unsigned char>& data) {
    const auto found = channels.find(channelId);
    if (found == channels.end()) {
        return ReasonCode::UnknownChannel;
    }
    if (found->second.readOnly) {
        return ReasonCode::ReadOnlyChannel;
    }
    if (data.size() != found->second.data.size()) {
        return ReasonCode::WrongDataSize;
    }
    write(channelId, found->second, data);
    return ReasonCode::Success;
}

bool MemoryChannelStore::update(unsigned int channelId, const std::vector<unsigned char>& data) {
    const auto found = channels.find(channelId);
    if (found == channels.end() || data.size() != found->second.data.size()) {
        return false;
    }
    write(channelId, found->second, data);
    return true;
}

void MemoryChannelStore::write(unsigned int channelId, Channel& channel,
                               const std::vector<unsigned char>& data) {
    channel.data = data;
    // A receiver may change the store while it is told (even remove this
    // channel), so it is told of a copy, never of the stored bytes.
    publishChange(ChannelValue(channelId, {}, data));
}
