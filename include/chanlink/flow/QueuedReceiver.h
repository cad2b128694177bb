#pragma once

#include <cstddef>
#include <deque>
#include <stdexcept>
#include <utility>

#include "chanlink/flow/Receiver.h"

// The end of a push chain that is drained by polling: receive appends a copy
// of the item, dequeue takes the oldest one out. Unbounded. With shared
// pointers as items, a queued object stays alive until it is taken out.
template <typename T>
class QueuedReceiver : public Receiver<T> {
public:
    // Appends a copy of item at the back.
    void receive(const T& item) override { queue.push_back(item); }

    // Removes the oldest item and returns it. Throws std::logic_error
    // ("Queue is empty") when there is none: test empty() first.
    virtual T dequeue() {
        if (queue.empty()) {
            throw std::logic_error("Queue is empty");
        }
        T front = std::move_if_noexcept(queue.front());
        queue.pop_front();
        return front;
    }

    virtual bool empty() const { return queue.empty(); }

    // Discards every queued item, oldest first.
    virtual void reset() {
        while (!queue.empty()) {
            queue.pop_front();
        }
    }

    // Number of items queued.
    std::size_t size() const { return queue.size(); }

private:
    std::deque<T> queue;
};
