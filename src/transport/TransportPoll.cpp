#include "chanlink/transport/TransportPoll.h"

#include "chanlink/transport/PollableTransport.h"
#include "chanlink/transport/TCPTransport.h"

pollfd TransportPoll::entry(bool pendingOutput) const {
    pollfd result{};
    result.fd = -1;
    if (descriptor < 0 || ended()) {
        return result;
    }
    result.fd = descriptor;
    result.events = events;
    if (pendingOutput && state == ConnectionOutcome::Connected) {
        result.events = static_cast<short>(result.events | POLLOUT);
    }
    return result;
}

TransportPoll TransportPoll::of(const Transport& transport) {
    if (const auto* pollable = dynamic_cast<const PollableTransport*>(&transport)) {
        return pollable->pollState();
    }
    TransportPoll answer;
    const auto* tcp = dynamic_cast<const TCPTransport*>(&transport);
    if (tcp == nullptr) {
        return answer;
    }
    answer.hasSocket = true;
    answer.state = tcp->state();
    // Only descriptors above 0 count as open in the TCP code.
    if (tcp->getSocket() > 0) {
        if (answer.state == ConnectionOutcome::Connecting) {
            // A connect under way completes when the socket turns writable.
            answer.descriptor = tcp->getSocket();
            answer.events = POLLOUT;
        } else if (answer.state == ConnectionOutcome::Connected) {
            answer.descriptor = tcp->getSocket();
            answer.events = POLLIN;
        }
    }
    return answer;
}

void TransportPoll::close(Transport& transport) {
    if (auto* pollable = dynamic_cast<PollableTransport*>(&transport)) {
        pollable->close();
    } else if (auto* tcp = dynamic_cast<TCPTransport*>(&transport)) {
        tcp->close();
    }
}
