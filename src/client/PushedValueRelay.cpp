#include "chanlink/client/PushedValueRelay.h"

#include <typeinfo>

#include "chanlink/messages/GetResponse.h"

void PushedValueRelay::receive(const Message& message) {
    // Selected by class, as the session's own pipelines select.
    if (typeid(message) != typeid(GetResponse) || !pushReceivers.hasReceivers()) {
        return;
    }
    for (const ChannelValue& value : static_cast<const GetResponse&>(message).getChannelValues()) {
        pushReceivers.receive(GetOutcome(value));
    }
}

void PushedValueRelay::receive(const GetOutcome&) {}
