#pragma once

#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"

// Hands every channel value a session receives, whatever its channel, to the
// receivers of ClientSession::addPushReceiver. A session holds at most one,
// among the receivers of its incoming messages; it also stands as a push
// subscription of its own, which keeps the device's log push on while any
// receiver is registered.
class PushedValueRelay : public Receiver<Message>, public Receiver<GetOutcome> {
public:
    // The channel under which the relay keeps its push subscription. Values
    // of that channel reach the relay's GetOutcome side and are ignored
    // there: they already came through the message side.
    static constexpr unsigned int HoldingChannel = 0;

    // Each value of a GetResponse, as a successful GetOutcome.
    void receive(const Message& message) override;
    void receive(const GetOutcome& outcome) override;

    Dispatcher<GetOutcome>& receivers() { return pushReceivers; }

private:
    Dispatcher<GetOutcome> pushReceivers;
};
