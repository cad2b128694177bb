#include "chanlink/transport/TCPServerTransportBuilder.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iostream>

#include "SocketWait.h"

namespace {

struct AddressListDeleter {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

}  // namespace

TCPServerTransportBuilder::TCPServerTransportBuilder(const std::string& service,
                                                     const std::string& host) {
    addrinfo hints{};
    hints.ai_flags = host.empty() ? AI_PASSIVE : 0;
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int result =
        ::getaddrinfo(host.empty() ? nullptr : host.c_str(), service.c_str(), &hints, &found);
    if (result != 0 || found == nullptr) {
        std::cerr << "Cannot getaddrinfo: " << ::gai_strerror(result) << std::endl;
        return;
    }
    // Released on every path, failures included, so no set-up leaks memory.
    const std::unique_ptr<addrinfo, AddressListDeleter> addresses(found);

    socket = ::socket(found->ai_family, found->ai_socktype, found->ai_protocol);
    const auto fail = [this](const char* message) {
        std::cerr << message << std::endl;
        closeImpl();
    };
    const int reuse = 1;
    const int v6Only = 0;
    // The listen at the end has a backlog of one: peers connect one at a time
    // and are accepted promptly.
    if (::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0) {
        fail("Cannot set reuseaddr socket option.");
    } else if (::setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &v6Only, sizeof v6Only) != 0) {
        fail("Cannot set IPv6v6only socket option.");
    } else if (::bind(socket, found->ai_addr, found->ai_addrlen) != 0) {
        fail("Cannot bind listening socket.");
    } else if (::listen(socket, 1) != 0) {
        fail("Cannot listen.");
    }
}

TCPServerTransportBuilder::~TCPServerTransportBuilder() {
    closeImpl();
}

void TCPServerTransportBuilder::closeImpl() {
    if (socket > 0) {
        ::close(socket);
    }
    socket = -1;
}

std::shared_ptr<TCPTransport> TCPServerTransportBuilder::accept(long seconds,
                                                                unsigned int microseconds) {
    if (socket <= 0) {
        return nullptr;
    }
    if (chanlink_detail::waitForSocket(socket, false, seconds, static_cast<long>(microseconds)) !=
        chanlink_detail::SocketWait::Ready) {
        return nullptr;
    }
    const int descriptor = ::accept(socket, nullptr, nullptr);
    if (descriptor <= 0) {
        return nullptr;
    }
    std::shared_ptr<TCPTransport> transport = TCPTransport::createShared(
        new TCPTransport(descriptor, ConnectionOutcome::Connected, nullptr));
    transport->setNonBlockingMode();
    transport->enableKeepAlive();
    return transport;
}

std::string TCPServerTransportBuilder::getListeningService() const {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    char service[10] = {};
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&address), size, nullptr, 0, service,
                      sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return std::string();
    }
    return service;
}
