#pragma once

#include <string>

// How a TLSClientTransport checks the device and shows itself. Files are PEM.
struct TLSClientSettings {
    // The certificates that vouch for the device: a file, a directory of
    // hashed certificates (openssl rehash), or both. With neither, the
    // system's store is used.
    std::string caFile;
    std::string caDirectory;
    // The client's own certificate (with its chain) and key, for a device
    // that asks for one (mutual TLS). An empty key file means the key is in
    // the certificate file.
    std::string certificateFile;
    std::string keyFile;
    // The name the device's certificate must carry, also sent as the server
    // name; empty means the host connected to. An IP address is checked
    // against the certificate's IP addresses.
    std::string serverName;
    // Off only for tests and first steps: without it anyone in the path can
    // pose as the device and read the password.
    bool verifyPeer = true;
};
