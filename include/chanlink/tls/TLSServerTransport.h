#pragma once

#include <memory>

#include "chanlink/server/DeviceSettings.h"
#include "chanlink/tls/TLSContext.h"
#include "chanlink/tls/TLSTransport.h"

// The device's end of a TLS connection: a handshake over an accepted TCP
// connection, carried on by tick(), read() and write(). Connecting until the
// handshake is done; a client that never completes it stays Connecting.
//
// A DeviceServer serves TLS only when every accepted connection is wrapped:
//
//     settings.wrapConnection = TLSServerTransport::wrapper(context);
class TLSServerTransport : public TLSTransport {
public:
    // connection: connected (as TCPServerTransportBuilder::accept makes it);
    // context: made with TLSContext::forServer. A connection not connected
    // or a missing or client context gives ConnectionFailed at once.
    TLSServerTransport(std::shared_ptr<TCPTransport> connection,
                       std::shared_ptr<TLSContext> context,
                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver = nullptr);
    ~TLSServerTransport() override;

    // Wraps every connection a DeviceServer accepts in TLS with context.
    static DeviceSettings::ConnectionWrapper wrapper(std::shared_ptr<TLSContext> context);

private:
    std::shared_ptr<TLSContext> context;
};
