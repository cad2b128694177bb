#pragma once

#include <map>
#include <memory>
#include <utility>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/ChannelValue.h"

// Keeps the last known value of every channel it hears of and tells its
// listeners when one changes, as a (previous, new) pair; previous is null for
// a channel's first value. A change is a different channel id or different
// data bytes: a change of header bytes alone is neither reported nor stored,
// and failed outcomes are ignored, so the last good value stays. A stream of
// repeated pushes thus becomes a stream of changes.
//
// Stored values are immutable: an update stores a new object and never
// touches one a listener may still hold.
class ChannelCache : public Receiver<GetOutcome> {
public:
    using Value = std::shared_ptr<const ChannelValue>;
    using Change = std::pair<Value, Value>;

    ChannelCache();
    ~ChannelCache() override;

    ChannelCache(const ChannelCache&) = delete;
    ChannelCache& operator=(const ChannelCache&) = delete;

    // Stores and reports a successful outcome whose value differs from the
    // stored one. Listeners are called on a snapshot of the list, so they may
    // add or remove listeners (themselves included) from the next update on.
    void receive(const GetOutcome& outcome) override;

    // The channel's current value, or null if it has none. Not const: an
    // unknown id gets an entry holding null, so hasChannel is true for it
    // afterwards.
    Value getChannel(unsigned int channelId);
    // Whether the channel has an entry, with or without a value.
    bool hasChannel(unsigned int channelId) const;

    // Appended unless null or already registered.
    void addReceiver(std::shared_ptr<Receiver<Change>> receiver);
    // Nothing if it is not registered.
    void removeReceiver(std::shared_ptr<Receiver<Change>> receiver);

private:
    std::map<unsigned int, Value> values;
    Dispatcher<Change> receivers;
};
