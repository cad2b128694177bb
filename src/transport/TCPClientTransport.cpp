#include "chanlink/transport/TCPClientTransport.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>

#include "SocketWait.h"

TCPClientTransport::TCPClientTransport(const std::string& host, const std::string& service,
                                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver)
    : TCPTransport(-1, ConnectionOutcome::NotConnected, std::move(receiver)),
      host(host),
      service(service) {}

TCPClientTransport::~TCPClientTransport() {
    releaseAddresses();
}

void TCPClientTransport::releaseAddresses() {
    if (addresses != nullptr) {
        ::freeaddrinfo(addresses);
        addresses = nullptr;
    }
}

bool TCPClientTransport::updateHostInfo() {
    releaseAddresses();
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    if (::getaddrinfo(host.c_str(), service.c_str(), &hints, &addresses) != 0) {
        addresses = nullptr;  // not set by a failed call
    }
    return addresses != nullptr;
}

void TCPClientTransport::connect() {
    if (socketOpen()) {
        return;
    }
    if (!updateHostInfo()) {
        connectionFailed();
        return;
    }
    // Only the first address is ever tried; peers rely on a fixed address order.
    const addrinfo& first = *addresses;
    setSocket(::socket(first.ai_family, first.ai_socktype, first.ai_protocol));
    if (!socketOpen()) {
        connectionFailed();
        return;
    }
    enableKeepAlive();
    if (!setNonBlockingMode()) {
        connectionFailed();
        return;
    }
    if (::connect(getSocket(), first.ai_addr, first.ai_addrlen) == 0) {
        progressState(ConnectionOutcome(ConnectionOutcome::Connected));
    } else if (errno == EINPROGRESS) {
        progressState(ConnectionOutcome(ConnectionOutcome::Connecting));
    } else {
        connectionFailed();
    }
}

void TCPClientTransport::connectionFailed() {
    if (socketOpen()) {
        closeImpl();
    }
    progressState(ConnectionOutcome(ConnectionOutcome::ConnectionFailed));
}

void TCPClientTransport::checkForConnectionComplete() {
    using chanlink_detail::SocketWait;
    const SocketWait wait = chanlink_detail::waitForSocket(getSocket(), true, 0, 0);
    if (wait == SocketWait::Timeout) {
        return;  // still under way
    }
    if (wait == SocketWait::Ready) {
        int error = 0;
        socklen_t size = sizeof error;
        if (::getsockopt(getSocket(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) {
            progressState(ConnectionOutcome(ConnectionOutcome::Connected));
            return;
        }
    }
    connectionFailed();
}

void TCPClientTransport::tick() {
    if (state() == ConnectionOutcome::Connecting) {
        checkForConnectionComplete();
    } else {
        TCPTransport::tick();
    }
}

int TCPClientTransport::read(void* buffer, int length) {
    if (state() == ConnectionOutcome::Connecting) {
        checkForConnectionComplete();
    }
    return TCPTransport::read(buffer, length);  // nothing unless connected
}

int TCPClientTransport::write(const void* buffer, int length) {
    if (state() == ConnectionOutcome::Connecting) {
        checkForConnectionComplete();
    }
    return TCPTransport::write(buffer, length);  // nothing unless connected
}

ConnectionOutcome::ConnectionStates TCPClientTransport::blockingConnect() {
    connect();
    while (state() == ConnectionOutcome::Connecting) {
        tick();
    }
    return state();
}
