#pragma once

#include <memory>
#include <string>

#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/transport/Transport.h"

// TLS for chanlink.Client, when the module was built with chanlink_tls.
class PythonTls {
public:
    struct Options {
        std::string ca;    // CA file; empty: the system's store
        std::string cert;  // the client's certificate, for mutual TLS
        std::string key;   // its key; empty: in the certificate file
        bool insecure = false;
    };

    // Transports that speak TLS to host and service; each one made is kept in
    // *last. Raises ValueError when the files cannot be loaded or the module
    // has no TLS.
    static ReconnectingClient::TransportFactory factory(
        const std::string& host, const std::string& service, const Options& options,
        std::shared_ptr<std::shared_ptr<Transport>> last);
    // Why a TLS transport failed ("certificate verify failed: ..."); empty
    // for anything else.
    static std::string failureReason(const std::shared_ptr<Transport>& transport);
};
