// The TLS transports fed garbage by their peer, over TCP on 127.0.0.1.
//
// Input: byte 0 selects the case, the rest is what the peer sends, raw.
// 0: a device's TLSServerTransport gets it instead of a client hello;
// 1: a TLSClientTransport gets it as the device's answer to its hello;
// 2: a client and a device complete a real handshake, then the client gets
//    the bytes from the device's socket in the middle of the TLS stream.
//
// Invariants: a read never returns more than asked for; a transport never
// reaches Connected on garbage; once it fails or closes it says why in one
// line and asks to be waited on no more; and every call returns (no call
// waits for the peer).
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "chanlink/tls.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"

namespace {

constexpr int Rounds = 64;

// A throw-away self-signed certificate for the device, made once per run.
std::shared_ptr<TLSContext> deviceContext() {
    static const std::shared_ptr<TLSContext> context = [] {
        char directory[] = "/tmp/chanlink-fuzz-XXXXXX";
        FUZZ_CHECK(::mkdtemp(directory) != nullptr);
        const std::string certificate = std::string(directory) + "/device.pem";
        const std::string key = std::string(directory) + "/device.key";
        EVP_PKEY* pkey = EVP_EC_gen("P-256");
        X509* x509 = X509_new();
        ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
        X509_gmtime_adj(X509_getm_notBefore(x509), 0);
        X509_gmtime_adj(X509_getm_notAfter(x509), 86400);
        X509_set_pubkey(x509, pkey);
        X509_NAME* name = X509_get_subject_name(x509);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("fuzz"), -1, -1, 0);
        X509_set_issuer_name(x509, name);
        X509_sign(x509, pkey, EVP_sha256());
        FILE* out = std::fopen(certificate.c_str(), "w");
        PEM_write_X509(out, x509);
        std::fclose(out);
        out = std::fopen(key.c_str(), "w");
        PEM_write_PrivateKey(out, pkey, nullptr, nullptr, 0, nullptr, nullptr);
        std::fclose(out);
        X509_free(x509);
        EVP_PKEY_free(pkey);
        std::string error;
        auto made = TLSContext::forServer({certificate, key, ""}, error);
        std::remove(certificate.c_str());
        std::remove(key.c_str());
        ::rmdir(directory);
        FUZZ_CHECK(made != nullptr);
        return made;
    }();
    return context;
}

TCPServerTransportBuilder& listener() {
    static TCPServerTransportBuilder builder("0", "::1");
    return builder;
}

std::shared_ptr<TLSClientTransport> newClient() {
    TLSClientSettings settings;
    settings.verifyPeer = false;  // garbage gets past no check anyway
    auto client = std::make_shared<TLSClientTransport>("::1", listener().getListeningService(),
                                                       nullptr, settings);
    client->connect();
    return client;
}

std::shared_ptr<TCPTransport> acceptOne() {
    std::shared_ptr<TCPTransport> accepted = listener().accept(1, 0);
    FUZZ_CHECK(accepted != nullptr);
    return accepted;
}

// One read and a tick; true once the transport has failed or closed.
bool step(TLSTransport& transport) {
    unsigned char buffer[256];
    transport.tick();
    const int count = transport.read(buffer, sizeof buffer);
    FUZZ_CHECK(count >= 0 && count <= static_cast<int>(sizeof buffer));
    const TransportPoll poll = TransportPoll::of(transport);
    if (!poll.ended()) {
        return false;
    }
    FUZZ_CHECK(transport.getFailureReason().find('\n') == std::string::npos);
    FUZZ_CHECK(poll.entry(true).fd == -1);
    return true;
}

void waitOn(const TLSTransport& transport) {
    pollfd entry = TransportPoll::of(transport).entry(false);
    ::poll(&entry, 1, 10);
}

void sendRaw(int socket, const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(socket, data, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return;  // the transport closed its end; the rest cannot matter
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
}

// Feeds garbage to transport until it gives up or has taken it all in.
void feed(TLSTransport& transport, int peerSocket, const std::uint8_t* data, std::size_t size) {
    sendRaw(peerSocket, data, size);
    ::shutdown(peerSocket, SHUT_WR);
    for (int round = 0; round < Rounds && !step(transport); ++round) {
        waitOn(transport);
    }
    // The peer's end of stream comes behind the garbage at the latest.
    FUZZ_CHECK(TransportPoll::of(transport).ended());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || !listener().isListening()) {
        return 0;
    }
    const int which = data[0] % 3;
    ++data;
    --size;
    if (which == 0) {
        auto raw =
            std::make_shared<TCPClientTransport>("::1", listener().getListeningService(), nullptr);
        raw->connect();
        TLSServerTransport device(acceptOne(), deviceContext());
        FUZZ_CHECK(raw->blockingConnect() == ConnectionOutcome::Connected);
        feed(device, raw->getSocket(), data, size);
        FUZZ_CHECK(device.state() != ConnectionOutcome::Connected);
        return 0;
    }
    auto client = newClient();
    std::shared_ptr<TCPTransport> accepted = acceptOne();
    if (which == 1) {
        feed(*client, accepted->getSocket(), data, size);
        FUZZ_CHECK(client->state() != ConnectionOutcome::Connected);
        return 0;
    }
    TLSServerTransport device(accepted, deviceContext());
    for (int round = 0; round < Rounds && (client->state() != ConnectionOutcome::Connected ||
                                           device.state() != ConnectionOutcome::Connected);
         ++round) {
        step(*client);
        step(device);
        waitOn(*client);
    }
    FUZZ_CHECK(client->state() == ConnectionOutcome::Connected);
    feed(*client, accepted->getSocket(), data, size);
    return 0;
}
