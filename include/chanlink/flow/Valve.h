#pragma once

#include <memory>
#include <utility>

#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/flow/Receiver.h"

// Sits in front of a downstream receiver and either passes items straight
// through (open) or holds them back in order (closed) until it is opened.
// Nothing is dropped, and the downstream receiver sees the items in exactly
// the order the valve received them. With shared pointers as items, a held
// object stays alive until it is released.
template <typename T>
class Valve : public Receiver<T> {
public:
    // receiver is the downstream receiver. A valve built with an empty one
    // drops what it would pass on, in either state.
    Valve(std::shared_ptr<Receiver<T>> receiver, bool open)
        : receiver(std::move(receiver)), opened(open) {}

    // Passes item on at once when open; holds a copy of it when closed.
    void receive(const T& item) override {
        if (opened) {
            deliver(item);
        } else {
            held.receive(item);
        }
    }

    // Releases every held item in order, then opens. The valve opens only
    // once the held queue is empty, so an item that arrives during the release
    // (sent by a receiver the release itself triggers) is held behind the
    // others and released by the same call. If the downstream receiver
    // throws, the exception passes out: the item it was given counts as
    // delivered, the rest stay held and the valve stays closed.
    void open() {
        while (!held.empty()) {
            const T item = held.dequeue();
            deliver(item);
        }
        opened = true;
    }

    // Later items are held until the next open().
    void close() { opened = false; }

    bool isOpen() const { return opened; }

private:
    void deliver(const T& item) {
        if (receiver) {
            receiver->receive(item);
        }
    }

    std::shared_ptr<Receiver<T>> receiver;
    bool opened;
    QueuedReceiver<T> held;
};
