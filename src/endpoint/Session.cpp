#include "chanlink/endpoint/Session.h"

Session::Session(std::shared_ptr<Transport> transport, std::shared_ptr<IncomingEndPoint> incoming,
                 std::shared_ptr<OutgoingEndPoint> outgoing)
    : transport(std::move(transport)),
      incomingEndPoint(std::move(incoming)),
      outgoingEndPoint(std::move(outgoing)) {}

// Takes nothing over from the source, on purpose: see the header.
Session::Session(const Session& /*other*/) {}

Session::~Session() = default;

// An empty copy has nothing to drive; it does nothing instead of crashing.
void Session::tick() {
    if (!transport || !incomingEndPoint || !outgoingEndPoint) {
        return;
    }
    transport->tick();
    incomingEndPoint->doRead();
    outgoingEndPoint->doWrite();
}

void Session::reset() {
    if (!incomingEndPoint || !outgoingEndPoint) {
        return;
    }
    incomingEndPoint->reset();
    outgoingEndPoint->reset();
}
