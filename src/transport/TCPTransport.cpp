#include "chanlink/transport/TCPTransport.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

TCPTransport::TCPTransport(int socket, ConnectionOutcome::ConnectionStates state,
                           std::shared_ptr<Receiver<ConnectionOutcome>> receiver)
    : socket(socket), connectionState(state), receiver(std::move(receiver)) {}

TCPTransport::~TCPTransport() {
    // Not through the virtual slot: a derived part is already gone.
    TCPTransport::close();
    receiver.reset();
}

std::shared_ptr<TCPTransport> TCPTransport::createShared(TCPTransport* transport) {
    return std::shared_ptr<TCPTransport>(transport);
}

ConnectionOutcome::ConnectionStates TCPTransport::state() const {
    return connectionState;
}

int TCPTransport::getSocket() const {
    return socket;
}

void TCPTransport::setReceiver(std::shared_ptr<Receiver<ConnectionOutcome>> newReceiver) {
    receiver = std::move(newReceiver);
}

void TCPTransport::progressState(const ConnectionOutcome& outcome) {
    if (outcome.state == connectionState) {
        return;
    }
    connectionState = outcome.state;
    if (receiver) {
        receiver->receive(ConnectionOutcome(connectionState));
    }
}

int TCPTransport::read(void* buffer, int length) {
    if (connectionState != ConnectionOutcome::Connected || buffer == nullptr || length <= 0) {
        return 0;
    }
    const ssize_t received = ::recv(socket, buffer, static_cast<size_t>(length), 0);
    if (received > 0) {
        return static_cast<int>(received);
    }
    if (received == 0) {
        close();  // the peer closed its end
        return 0;
    }
    // EINPROGRESS is taken like EAGAIN here, unlike in write; peers have
    // always been read this way.
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINPROGRESS) {
        close();
    }
    return 0;
}

int TCPTransport::write(const void* buffer, int length) {
    if (connectionState != ConnectionOutcome::Connected || buffer == nullptr || length <= 0) {
        return 0;
    }
    const ssize_t sent = ::send(socket, buffer, static_cast<size_t>(length), MSG_NOSIGNAL);
    if (sent >= 0) {
        return static_cast<int>(sent);
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
        close();
    }
    return 0;
}

void TCPTransport::tick() {
    if (connectionState == ConnectionOutcome::Connected) {
        checkForDroppedConnection();
    }
}

void TCPTransport::close() {
    if (socketOpen()) {
        closeImpl();
    }
    progressState(ConnectionOutcome(ConnectionOutcome::Closed));
}

int TCPTransport::closeImpl() {
    const int result = ::close(socket);
    socket = -1;
    return result;
}

bool TCPTransport::setNonBlockingMode() {
    const int flags = ::fcntl(socket, F_GETFL, 0);
    if (flags < 0) {
        return false;
    }
    ::fcntl(socket, F_SETFL, flags | O_NONBLOCK);
    return true;
}

int TCPTransport::enableKeepAlive() {
    const int enable = 1;
    return ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &enable, sizeof enable);
}

void TCPTransport::checkForDroppedConnection() {}
