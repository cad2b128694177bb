#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <utility>

#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"

// The per-channel receiver table that the get manager, both subscription
// managers and ReconnectingClient keep: an ordered map from channel id to
// the dispatcher of that channel's receivers. The operations work on the
// owner's own map, so each owner keeps its map as a plain field.
//
// A receiver may change the table while it is being delivered to: delivery
// works on the dispatcher's snapshot, and entries are looked up by key again
// after any call that may reach application code.
template <typename T>
class ChannelReceiverTable {
public:
    using Table = std::map<unsigned int, Dispatcher<T>>;
    using ReceiverPtr = std::shared_ptr<Receiver<T>>;

    // Adds receiver to the channel's receivers (an empty or repeated one is
    // refused by the dispatcher, but the channel's entry is made). When the
    // channel had no entry, beforeFirst runs first, before the entry exists.
    static void add(Table& table, unsigned int channelId, ReceiverPtr receiver,
                    const std::function<void()>& beforeFirst = {}) {
        if (beforeFirst && table.find(channelId) == table.end()) {
            beforeFirst();
        }
        table[channelId].addReceiver(std::move(receiver));
    }

    // Removes receiver from the channel. When no receiver is left, beforeLast
    // runs and then the channel's entry is erased; true in that case. False,
    // and nothing happens, for a channel without an entry.
    static bool remove(Table& table, unsigned int channelId, ReceiverPtr receiver,
                       const std::function<void()>& beforeLast = {}) {
        const auto found = table.find(channelId);
        if (found == table.end()) {
            return false;
        }
        found->second.removeReceiver(std::move(receiver));
        if (found->second.hasReceivers()) {
            return false;
        }
        if (beforeLast) {
            beforeLast();
        }
        table.erase(channelId);  // by key: beforeLast may have changed the map
        return true;
    }

    // Hands item to the channel's receivers, which stay registered.
    static void deliver(Table& table, unsigned int channelId, const T& item) {
        const auto found = table.find(channelId);
        if (found != table.end()) {
            found->second.receive(item);
        }
    }

    // Takes the channel's receivers out of the table, then hands each the
    // item: a waiting receiver is answered once, and one that asks again
    // starts a new wait. Nothing happens when nobody waited.
    static void answer(Table& table, unsigned int channelId, const T& item) {
        const auto found = table.find(channelId);
        if (found != table.end()) {
            Dispatcher<T> waiting = std::move(found->second);
            table.erase(found);
            waiting.receive(item);
        }
    }

    // Empties the table and returns what it held: receivers registered from
    // then on (by a receiver being answered, say) start a new table.
    static Table takeAll(Table& table) {
        Table taken;
        taken.swap(table);
        return taken;
    }

    // The channels with an entry, ascending.
    static std::list<unsigned int> channels(const Table& table) {
        std::list<unsigned int> ids;
        for (const auto& entry : table) {
            ids.push_back(entry.first);
        }
        return ids;
    }
};
