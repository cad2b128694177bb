#include "chanlink/tls/TLSContext.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace {

// The oldest error OpenSSL queued, as text, or fallback when there is none.
std::string openSslReason(const char* fallback) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
    return reason != nullptr ? reason : fallback;
}

bool loadIdentity(SSL_CTX* context, const std::string& certificate, const std::string& key,
                  std::string& error) {
    if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1) {
        error = "cannot load the certificate " + certificate + ": " + openSslReason("unknown");
        return false;
    }
    const std::string& keyFile = key.empty() ? certificate : key;
    if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        error = "cannot load the key " + keyFile + ": " + openSslReason("unknown");
        return false;
    }
    if (SSL_CTX_check_private_key(context) != 1) {
        ERR_clear_error();
        error = "the key " + keyFile + " does not belong to the certificate " + certificate;
        return false;
    }
    return true;
}

SSL_CTX* newContext(const SSL_METHOD* method) {
    SSL_CTX* context = SSL_CTX_new(method);
    if (context != nullptr) {
        SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
        // The transport retries a blocked write from its own buffer.
        SSL_CTX_set_mode(context, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
        // One recv per burst instead of one per record header and body.
        SSL_CTX_set_read_ahead(context, 1);
    }
    return context;
}

}  // namespace

TLSContext::TLSContext(SSL_CTX* context, bool server, bool verify)
    : context(context), server(server), verify(verify) {}

TLSContext::~TLSContext() {
    SSL_CTX_free(context);
}

std::shared_ptr<TLSContext> TLSContext::forClient(const TLSClientSettings& settings,
                                                  std::string& error) {
    SSL_CTX* context = newContext(TLS_client_method());
    if (context == nullptr) {
        error = "cannot set up TLS: " + openSslReason("out of memory");
        return nullptr;
    }
    std::shared_ptr<TLSContext> result(new TLSContext(context, false, settings.verifyPeer));
    if (settings.verifyPeer) {
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
        if (settings.caFile.empty() && settings.caDirectory.empty()) {
            SSL_CTX_set_default_verify_paths(context);
        } else if (SSL_CTX_load_verify_locations(
                       context, settings.caFile.empty() ? nullptr : settings.caFile.c_str(),
                       settings.caDirectory.empty() ? nullptr : settings.caDirectory.c_str()) !=
                   1) {
            error = "cannot load the CA certificates " +
                    (settings.caFile.empty() ? settings.caDirectory : settings.caFile) + ": " +
                    openSslReason("unknown");
            return nullptr;
        }
    } else {
        SSL_CTX_set_verify(context, SSL_VERIFY_NONE, nullptr);
    }
    if (!settings.certificateFile.empty() &&
        !loadIdentity(context, settings.certificateFile, settings.keyFile, error)) {
        return nullptr;
    }
    return result;
}

std::shared_ptr<TLSContext> TLSContext::forServer(const TLSServerSettings& settings,
                                                  std::string& error) {
    SSL_CTX* context = newContext(TLS_server_method());
    if (context == nullptr) {
        error = "cannot set up TLS: " + openSslReason("out of memory");
        return nullptr;
    }
    std::shared_ptr<TLSContext> result(new TLSContext(context, true, false));
    // Clients here make one connection and keep it; tickets would only cost
    // a round of bytes after every handshake.
    SSL_CTX_set_num_tickets(context, 0);
    if (!loadIdentity(context, settings.certificateFile, settings.keyFile, error)) {
        return nullptr;
    }
    if (!settings.clientCaFile.empty()) {
        STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(settings.clientCaFile.c_str());
        if (names == nullptr ||
            SSL_CTX_load_verify_locations(context, settings.clientCaFile.c_str(), nullptr) != 1) {
            sk_X509_NAME_pop_free(names, X509_NAME_free);
            error = "cannot load the client CA certificates " + settings.clientCaFile + ": " +
                    openSslReason("no certificate in the file");
            return nullptr;
        }
        SSL_CTX_set_client_CA_list(context, names);
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        result->verify = true;
    }
    return result;
}
