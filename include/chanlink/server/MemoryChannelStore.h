#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "chanlink/server/ChannelStore.h"

// A ChannelStore that keeps its channels in memory: each has an id, a fixed
// data size, a value, a read-only flag and a name for the application's own
// use. Values carry no header bytes.
//
// Clients may set a channel only when it is writable and the data has
// exactly the channel's size; the application itself writes any channel,
// read-only ones included, with update(). Every successful write is
// published as a change, also one that writes the value the channel already
// had, so subscribers see every write.
class MemoryChannelStore : public ChannelStore {
public:
    // The most data bytes a channel can have: the size field of a set request.
    static constexpr std::size_t MaxChannelSize = 65535;

    MemoryChannelStore();
    ~MemoryChannelStore() override;

    // Adds the channel, or replaces the one with the same id; its size is
    // the size of initial. False, and nothing changes, when initial is longer
    // than MaxChannelSize. Adding publishes nothing.
    bool addChannel(unsigned int channelId, std::vector<unsigned char> initial, bool readOnly,
                    std::string name = std::string());
    // Removes the channel; false when there was none.
    bool removeChannel(unsigned int channelId);

    bool hasChannel(unsigned int channelId) const;
    // Ids of every channel, ascending.
    std::vector<unsigned int> channelIds() const;
    // The channel's data size in bytes, or nothing for an unknown channel.
    std::optional<std::size_t> channelSize(unsigned int channelId) const;
    // False also for an unknown channel.
    bool isReadOnly(unsigned int channelId) const;
    // Empty for an unknown channel.
    std::string channelName(unsigned int channelId) const;

    std::optional<ChannelValue> getValue(unsigned int channelId) const override;
    // ReasonCode::UnknownChannel, then ReadOnlyChannel, then WrongDataSize
    // (data not exactly the channel's size), else writes, publishes and
    // returns ReasonCode::Success.
    unsigned char setValue(unsigned int channelId, const std::vector<unsigned char>& data) override;

    // The application's own write: any channel, read-only or not. False, and
    // nothing changes, for an unknown channel or data of another size;
    // otherwise writes and publishes the change.
    bool update(unsigned int channelId, const std::vector<unsigned char>& data);

private:
    struct Channel {
        std::vector<unsigned char> data;
        bool readOnly = false;
        std::string name;
    };

    void write(unsigned int channelId, Channel& channel, const std::vector<unsigned char>& data);

    std::map<unsigned int, Channel> channels;
};
