#include "TLSStream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// The most bytes the stream takes into its buffer at once: one TLS record.
constexpr std::size_t MaxPendingBytes = 16384;

int socketOf(BIO* bio) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio)));
}

// OpenSSL's own socket BIO writes with write(), which raises SIGPIPE on a
// broken connection; this one sends with MSG_NOSIGNAL like TCPTransport.
int bioWrite(BIO* bio, const char* data, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent =
        ::send(socketOf(bio), data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        BIO_set_retry_write(bio);
    }
    return static_cast<int>(sent);
}

int bioRead(BIO* bio, char* data, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t received = ::recv(socketOf(bio), data, static_cast<std::size_t>(length), 0);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        BIO_set_retry_read(bio);
    }
    return static_cast<int>(received);
}

long bioControl(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

int bioCreate(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

BIO_METHOD* socketMethod() {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* m = BIO_meth_new(
            BIO_get_new_index() | BIO_TYPE_SOURCE_SINK | BIO_TYPE_DESCRIPTOR, "chanlink socket");
        if (m != nullptr) {
            BIO_meth_set_write(m, bioWrite);
            BIO_meth_set_read(m, bioRead);
            BIO_meth_set_ctrl(m, bioControl);
            BIO_meth_set_create(m, bioCreate);
        }
        return m;
    }();
    return method;
}

bool isIpAddress(const std::string& name) {
    unsigned char address[sizeof(in6_addr)];
    return ::inet_pton(AF_INET, name.c_str(), address) == 1 ||
           ::inet_pton(AF_INET6, name.c_str(), address) == 1;
}

}  // namespace

TLSStream::TLSStream(SSL_CTX* context, int socket, bool server, bool verify,
                     const std::string& peerName)
    : server(server) {
    ERR_clear_error();
    ssl = SSL_new(context);
    // The BIO is made only for an SSL that exists, so a failure owns nothing.
    BIO* bio = ssl != nullptr && socketMethod() != nullptr ? BIO_new(socketMethod()) : nullptr;
    if (bio == nullptr) {
        reason = "cannot set up TLS: out of memory";
        return;
    }
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(socket)));
    SSL_set_bio(ssl, bio, bio);
    if (server || peerName.empty()) {
        return;
    }
    if (isIpAddress(peerName)) {
        if (verify) {
            X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), peerName.c_str());
        }
    } else {
        SSL_set_tlsext_host_name(ssl, peerName.c_str());
        if (verify) {
            SSL_set1_host(ssl, peerName.c_str());
        }
    }
}

TLSStream::~TLSStream() {
    SSL_free(ssl);
}

TLSStream::Step TLSStream::handshake() {
    if (ended()) {
        return Step::Failed;
    }
    if (connected) {
        return Step::Done;
    }
    ERR_clear_error();
    const int result = server ? SSL_accept(ssl) : SSL_connect(ssl);
    if (result == 1) {
        connected = true;
        wantWrite = false;
        return Step::Done;
    }
    return retryable(result, "TLS handshake failed") ? Step::Again : Step::Failed;
}

int TLSStream::read(void* buffer, int length) {
    if (ended() || !connected || buffer == nullptr || length <= 0) {
        return 0;
    }
    ERR_clear_error();
    const int result = SSL_read(ssl, buffer, length);
    // With read-ahead, whole records may wait in OpenSSL's buffer after this
    // one; a read that finds only part of one clears this, so an unfinished
    // record is waited for on the socket rather than spun on.
    readMayHaveMore = result > 0;
    if (result > 0) {
        return result;
    }
    retryable(result, "TLS error");
    return 0;
}

int TLSStream::write(const void* buffer, int length) {
    if (ended() || !connected || buffer == nullptr || length <= 0) {
        return 0;
    }
    flush();
    if (!pending.empty() || ended()) {
        return 0;
    }
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    const std::size_t taken = std::min(static_cast<std::size_t>(length), MaxPendingBytes);
    pending.assign(bytes, bytes + taken);
    flush();
    return static_cast<int>(taken);
}

void TLSStream::flush() {
    while (!pending.empty() && !ended() && connected) {
        ERR_clear_error();
        const int result = SSL_write(ssl, pending.data(), static_cast<int>(pending.size()));
        if (result <= 0) {
            retryable(result, "TLS error");
            return;
        }
        wantWrite = false;
        pending.erase(pending.begin(), pending.begin() + result);
    }
}

void TLSStream::shutdown() {
    if (connected && !ended()) {
        ERR_clear_error();
        SSL_shutdown(ssl);
        ERR_clear_error();
    }
    closed = true;
}

short TLSStream::events() const {
    if (ended()) {
        return 0;
    }
    if (!connected) {
        return wantWrite ? POLLOUT : POLLIN;
    }
    return static_cast<short>(POLLIN | (wantWrite || !pending.empty() ? POLLOUT : 0));
}

bool TLSStream::inputBuffered() const {
    return !ended() && connected &&
           (SSL_pending(ssl) > 0 || (readMayHaveMore && SSL_has_pending(ssl) == 1));
}

bool TLSStream::retryable(int result, const char* what) {
    const int error = SSL_get_error(ssl, result);
    if (error == SSL_ERROR_WANT_READ) {
        wantWrite = false;
        return true;
    }
    if (error == SSL_ERROR_WANT_WRITE) {
        wantWrite = true;
        return true;
    }
    const long verified = SSL_get_verify_result(ssl);
    const unsigned long code = ERR_get_error();
    const int savedErrno = errno;
    ERR_clear_error();
    if (!connected && verified != X509_V_OK) {
        reason =
            std::string("certificate verify failed: ") + X509_verify_cert_error_string(verified);
    } else if (error == SSL_ERROR_ZERO_RETURN) {
        reason = connected ? "closed by the peer" : std::string(what) + ": closed by the peer";
    } else if (code != 0 && ERR_reason_error_string(code) != nullptr) {
        reason = std::string(what) + ": " + ERR_reason_error_string(code);
    } else if (error == SSL_ERROR_SYSCALL && result < 0 && savedErrno != 0) {
        reason = std::string(what) + ": " + std::strerror(savedErrno);
    } else {
        reason = std::string(what) + ": the peer closed the connection";
    }
    return false;
}
