#pragma once

#include <memory>
#include <string>

#include "chanlink/transport/TCPTransport.h"

// Owns one listening TCP socket and turns each accepted connection into a
// TCPTransport that starts Connected, with no receiver.
//
// The socket is IPv6 with IPv4-mapped addresses allowed, so one listener on
// an empty host serves IPv4 and IPv6 clients alike. Set-up failures are
// written to standard error as one line each ("Cannot bind listening
// socket." and the like); afterwards accept() always returns null at once
// and isListening() is false.
class TCPServerTransportBuilder {
public:
    // service: port number or service name ("0" lets the system choose);
    // host: address to listen on, empty for all local addresses. The order is
    // the reverse of TCPClientTransport's, as existing servers call it.
    TCPServerTransportBuilder(const std::string& service, const std::string& host);
    virtual ~TCPServerTransportBuilder();

    TCPServerTransportBuilder(const TCPServerTransportBuilder&) = delete;
    TCPServerTransportBuilder& operator=(const TCPServerTransportBuilder&) = delete;

    // Waits up to seconds + microseconds (microseconds below 1000000) for one
    // connection and returns it as a non-blocking transport with keep-alive
    // on; null on timeout, on any error, or when not listening.
    std::shared_ptr<TCPTransport> accept(long seconds, unsigned int microseconds);
    // The local port as decimal text (the one the system chose for "0");
    // empty when it cannot be determined.
    std::string getListeningService() const;

    // Whether set-up succeeded and the socket is listening.
    bool isListening() const { return socket > 0; }
    // The listening descriptor (-1 when none), for applications that wait on
    // it with poll alongside their connections.
    int getSocket() const { return socket; }

protected:
    // Closes the listening socket if open and sets it to -1.
    void closeImpl();

private:
    int socket = -1;
};
