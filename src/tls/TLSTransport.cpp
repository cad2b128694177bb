#include "chanlink/tls/TLSTransport.h"

#include <utility>

#include "TLSStream.h"
#include "chanlink/tls/TLSContext.h"

TLSTransport::TLSTransport(std::shared_ptr<Receiver<ConnectionOutcome>> receiver)
    : receiver(std::move(receiver)) {}

TLSTransport::~TLSTransport() {
    TLSTransport::close();
}

int TLSTransport::read(void* buffer, int length) {
    if (connectionState == ConnectionOutcome::Connecting) {
        progress();
    }
    if (connectionState != ConnectionOutcome::Connected) {
        return 0;
    }
    const int count = stream->read(buffer, length);
    endIfClosed();
    return count;
}

int TLSTransport::write(const void* buffer, int length) {
    if (connectionState == ConnectionOutcome::Connecting) {
        progress();
    }
    if (connectionState != ConnectionOutcome::Connected) {
        return 0;
    }
    const int count = stream->write(buffer, length);
    endIfClosed();
    return count;
}

void TLSTransport::tick() {
    if (connectionState == ConnectionOutcome::Connecting) {
        progress();
    } else if (connectionState == ConnectionOutcome::Connected) {
        stream->flush();
        endIfClosed();
    }
}

void TLSTransport::setReceiver(std::shared_ptr<Receiver<ConnectionOutcome>> newReceiver) {
    receiver = std::move(newReceiver);
}

TransportPoll TLSTransport::pollState() const {
    TransportPoll answer;
    answer.hasSocket = true;
    answer.state = connectionState;
    if (stream && !answer.ended()) {
        answer.descriptor = tcp->getSocket();
        answer.events = stream->events();
        answer.inputBuffered = stream->inputBuffered();
    } else if (tcp && connectionState == ConnectionOutcome::Connecting) {
        answer.descriptor = TransportPoll::of(*tcp).descriptor;
        answer.events = POLLOUT;
    }
    return answer;
}

void TLSTransport::close() {
    if (stream) {
        stream->shutdown();
    }
    if (tcp) {
        tcp->close();
    }
    progressState(ConnectionOutcome::Closed);
}

void TLSTransport::progress() {
    if (!stream) {
        return;
    }
    switch (stream->handshake()) {
        case TLSStream::Step::Done:
            progressState(ConnectionOutcome::Connected);
            break;
        case TLSStream::Step::Failed:
            fail(stream->failureReason());
            break;
        case TLSStream::Step::Again:
            break;
    }
}

void TLSTransport::startHandshake(const TLSContext& context, const std::string& peerName) {
    stream = std::make_unique<TLSStream>(context.get(), tcp->getSocket(), context.isServer(),
                                         context.verifiesPeer(), peerName);
    progressState(ConnectionOutcome::Connecting);
}

void TLSTransport::fail(std::string reason) {
    failureReason = std::move(reason);
    if (tcp) {
        tcp->close();
    }
    progressState(ConnectionOutcome::ConnectionFailed);
}

void TLSTransport::progressState(ConnectionOutcome::ConnectionStates state) {
    if (state == connectionState) {
        return;
    }
    connectionState = state;
    if (receiver) {
        receiver->receive(ConnectionOutcome(state));
    }
}

void TLSTransport::reset(std::shared_ptr<TCPTransport> connection) {
    stream.reset();
    tcp = std::move(connection);
    failureReason.clear();
}

void TLSTransport::endIfClosed() {
    if (stream->ended()) {
        failureReason = stream->failureReason();
        tcp->close();
        progressState(ConnectionOutcome::Closed);
    }
}
