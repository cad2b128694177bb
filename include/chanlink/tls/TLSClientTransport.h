#pragma once

#include <functional>
#include <memory>
#include <string>

#include "chanlink/tls/TLSClientSettings.h"
#include "chanlink/tls/TLSContext.h"
#include "chanlink/tls/TLSTransport.h"

class TCPClientTransport;

// A TLS connection to a device by host and service, the TLS counterpart of
// TCPClientTransport: connect() starts a non-blocking TCP connect, and
// tick(), read() and write() carry it and the handshake on. The device's
// certificate is verified (against settings.caFile/caDirectory or the
// system's store) and its name checked, unless settings.verifyPeer is off.
//
//     auto tls = std::make_shared<TLSClientTransport>("device.local", "7300", nullptr, settings);
//     tls->connect();
//     session = ClientSessionBuilder().setTransport(tls)...build();
class TLSClientTransport : public TLSTransport {
public:
    // Loads the files of settings now; a failure to do so shows as
    // ConnectionFailed, with the reason, on connect().
    TLSClientTransport(const std::string& host, const std::string& service,
                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver,
                       const TLSClientSettings& settings);
    // Shares a context made with TLSContext::forClient, for many
    // connections; serverName as in TLSClientSettings.
    TLSClientTransport(const std::string& host, const std::string& service,
                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver,
                       std::shared_ptr<TLSContext> context, const std::string& serverName = "");
    ~TLSClientTransport() override;

    // Starts a connection and returns at once; the state becomes Connecting
    // or ConnectionFailed. Does nothing while Connecting or Connected; may
    // be called again after ConnectionFailed or Closed.
    void connect();

    // A transport factory for ReconnectingClient: each call makes a new
    // transport sharing one context. Null, with error set, when the files
    // of settings cannot be loaded.
    static std::function<std::shared_ptr<Transport>()> factory(const std::string& host,
                                                               const std::string& service,
                                                               const TLSClientSettings& settings,
                                                               std::string& error);

protected:
    void progress() override;

private:
    std::string host;
    std::string service;
    std::string serverName;
    std::shared_ptr<TLSContext> context;
    std::string contextError;
    std::shared_ptr<TCPClientTransport> tcp;
};
