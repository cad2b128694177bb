#pragma once

#include <memory>
#include <string>

#include "chanlink/tls/TLSClientSettings.h"
#include "chanlink/tls/TLSServerSettings.h"

struct ssl_ctx_st;

// Loaded certificates, keys and verification rules, shared by the
// connections made with them (OpenSSL's SSL_CTX). TLS 1.2 at least.
class TLSContext {
public:
    // Null, with error set to a one-line reason naming the file, when a file
    // cannot be loaded or the key does not match the certificate.
    static std::shared_ptr<TLSContext> forClient(const TLSClientSettings& settings,
                                                 std::string& error);
    static std::shared_ptr<TLSContext> forServer(const TLSServerSettings& settings,
                                                 std::string& error);
    ~TLSContext();

    TLSContext(const TLSContext&) = delete;
    TLSContext& operator=(const TLSContext&) = delete;

    ssl_ctx_st* get() const { return context; }
    bool isServer() const { return server; }
    // Clients: whether the device's certificate and name are checked.
    bool verifiesPeer() const { return verify; }

private:
    TLSContext(ssl_ctx_st* context, bool server, bool verify);

    ssl_ctx_st* context;
    bool server;
    bool verify;
};
