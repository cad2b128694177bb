#pragma once

#include <string>

#include "chanlink/transport/TCPTransport.h"

struct addrinfo;

// A TCPTransport that connects to a host and service (name or decimal port).
// connect() starts a non-blocking connect and returns at once; tick(), read()
// and write() complete it. Only the first address the name resolves to is
// tried.
class TCPClientTransport : public TCPTransport {
public:
    // No resolution and no socket yet; the state is NotConnected.
    TCPClientTransport(const std::string& host, const std::string& service,
                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver);
    ~TCPClientTransport() override;

    // Starts a connection: Connected at once, Connecting while under way, or
    // ConnectionFailed. Does nothing while a socket is open (Connecting or
    // Connected); may be called again after ConnectionFailed or Closed.
    // Name resolution happens here and may take as long as the system's
    // resolver takes.
    void connect();
    // connect(), then spins on tick() while Connecting, with no sleep and no
    // time limit of its own (the system's connect timeout ends it). Returns
    // the state it ends in.
    ConnectionOutcome::ConnectionStates blockingConnect();

    // While Connecting, these first check whether the connect has completed
    // (never waiting); once Connected they behave as the base does.
    int read(void* buffer, int length) override;
    int write(const void* buffer, int length) override;
    void tick() override;

protected:
    // Resolves host and service afresh; true when at least one address came back.
    bool updateHostInfo();
    // Polls the connect's completion without waiting.
    void checkForConnectionComplete();
    // Closes any open socket and reports ConnectionFailed.
    void connectionFailed();

private:
    void releaseAddresses();

    std::string host;
    std::string service;
    addrinfo* addresses = nullptr;
};
