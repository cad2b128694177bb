#pragma once

#include <string>

// What a device shows to TLS clients, and whom it asks for a certificate.
// Files are PEM.
struct TLSServerSettings {
    // The device's certificate (with its chain) and key. An empty key file
    // means the key is in the certificate file.
    std::string certificateFile;
    std::string keyFile;
    // When set, every client must present a certificate issued by one of
    // these (mutual TLS); a client without one fails the handshake.
    std::string clientCaFile;
};
