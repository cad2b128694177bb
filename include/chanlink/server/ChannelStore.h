#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/ChannelValue.h"

// The channels a device serves, supplied by the application: DeviceServer
// reads and writes them on its clients' behalf and is told of every change.
//
// An implementation answers getValue and setValue and calls publishChange
// after every change of a value, whatever caused it (a client's set, a
// sensor, a timer), so that subscribed clients hear of it.
class ChannelStore {
public:
    virtual ~ChannelStore();

    // The channel's current value, or nothing when there is no such channel.
    // A value must fit the wire: at most 65535 header and data bytes in all.
    virtual std::optional<ChannelValue> getValue(unsigned int channelId) const = 0;

    // Writes data to the channel at a client's request. Returns
    // ReasonCode::Success (255) when the value was written, after
    // publishing the change; otherwise the reason to answer the client with,
    // ReasonCode::UnknownChannel, ReadOnlyChannel or WrongDataSize, or a
    // code of the application's own.
    virtual unsigned char setValue(unsigned int channelId,
                                   const std::vector<unsigned char>& data) = 0;

    // Receivers told of each change with the channel's new value, in the
    // order they were added. An empty or repeated receiver is ignored.
    void addChangeReceiver(std::shared_ptr<Receiver<ChannelValue>> receiver);
    void removeChangeReceiver(std::shared_ptr<Receiver<ChannelValue>> receiver);

protected:
    ChannelStore();
    ChannelStore(const ChannelStore&) = delete;
    ChannelStore& operator=(const ChannelStore&) = delete;

    // Tells every change receiver of the new value, synchronously.
    void publishChange(const ChannelValue& value);

private:
    Dispatcher<ChannelValue> changeReceivers;
};
