#pragma once

#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "chanlink/flow/Receiver.h"

// Fans each item out to its registered receivers, in order of registration.
//
// Delivery works on a snapshot of the list, so a receiver may add or remove
// receivers (itself included) while it is being called, and may even drop the
// last reference to the dispatcher: such changes only affect the next item. A
// receiver removed during a delivery still gets the current item if it comes
// later in the snapshot, and stays alive until the delivery has finished.
//
// Copyable: a copy has its own list holding the same receivers.
template <typename T>
class Dispatcher : public Receiver<T> {
public:
    using ReceiverPtr = std::shared_ptr<Receiver<T>>;
    using ReceiverList = std::list<ReceiverPtr>;

    // Delivers the same item reference to every receiver registered when the
    // call began. An exception thrown by a receiver passes out of receive;
    // the receivers after it do not get the item.
    void receive(const T& item) override {
        const std::vector<ReceiverPtr> snapshot(receivers.begin(), receivers.end());
        // Only the snapshot is touched from here on: a receiver may have
        // destroyed this dispatcher.
        for (const ReceiverPtr& receiver : snapshot) {
            receiver->receive(item);
        }
    }

    // Drops the dispatcher's reference to receiver; does nothing when it is
    // not registered.
    virtual void removeReceiver(ReceiverPtr receiver) {
        const auto found = findReceiver(std::move(receiver));
        if (found != receivers.end()) {
            // The receiver may die with this reference; let that happen only
            // once the list is consistent again, in case its destructor calls
            // back into this dispatcher.
            const ReceiverPtr dropped = std::move(*found);
            receivers.erase(found);
        }
    }

    // Appends receiver at the end. An empty pointer or a receiver already
    // registered is refused silently.
    virtual void addReceiver(ReceiverPtr receiver) {
        if (receiver && findReceiver(receiver) == receivers.end()) {
            receivers.push_back(std::move(receiver));
        }
    }

    virtual bool hasReceiver(ReceiverPtr receiver) {
        return findReceiver(std::move(receiver)) != receivers.end();
    }

    virtual bool hasReceivers() const { return !receivers.empty(); }

    // The first registered receiver that is a U, or an empty pointer: lets
    // code that added a receiver of its own type find it again without
    // keeping a pointer to it.
    template <typename U>
    std::shared_ptr<U> findReceiverOfType() const {
        for (const ReceiverPtr& receiver : receivers) {
            if (auto found = std::dynamic_pointer_cast<U>(receiver)) {
                return found;
            }
        }
        return nullptr;
    }

protected:
    // The first entry holding the same object as receiver (identity, not value
    // equality), or the list's end. addReceiver, removeReceiver and
    // hasReceiver all look receivers up through this, so an override changes
    // all three.
    virtual typename ReceiverList::iterator findReceiver(ReceiverPtr receiver) {
        auto it = receivers.begin();
        while (it != receivers.end() && *it != receiver) {
            ++it;
        }
        return it;
    }

    ReceiverList& receiverList() { return receivers; }
    const ReceiverList& receiverList() const { return receivers; }

private:
    // Never holds an empty pointer, never the same receiver twice.
    ReceiverList receivers;
};
