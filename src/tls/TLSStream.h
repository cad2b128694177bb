#pragma once

#include <string>
#include <vector>

struct ssl_st;
struct ssl_ctx_st;

// One TLS connection over a non-blocking socket that someone else owns:
// the handshake, reads and writes, and which direction OpenSSL waits for.
// Writes go out from a buffer of its own, so a write that OpenSSL has to
// repeat is repeated with the same bytes.
class TLSStream {
public:
    enum class Step { Done, Again, Failed };

    // peerName (clients only): the name or IP address the certificate must
    // carry when the context verifies; also sent as the server name.
    TLSStream(ssl_ctx_st* context, int socket, bool server, bool verify,
              const std::string& peerName);
    ~TLSStream();

    TLSStream(const TLSStream&) = delete;
    TLSStream& operator=(const TLSStream&) = delete;

    Step handshake();
    // Bytes decrypted, 0 for none; ended() tells a closed stream.
    int read(void* buffer, int length);
    // Bytes taken into the stream's buffer, 0 while it is still full.
    int write(const void* buffer, int length);
    // Sends what the buffer holds, as far as the socket takes it.
    void flush();
    // Sends close_notify once, without waiting for the answer.
    void shutdown();

    // The poll events OpenSSL waits for.
    short events() const;
    bool inputBuffered() const;
    bool ended() const { return closed || !reason.empty(); }
    // Why the stream failed or ended; empty while it is fine.
    const std::string& failureReason() const { return reason; }

private:
    // Reads SSL_get_error for result; true when the call only has to be
    // repeated later, false (with reason set) when the stream has ended.
    bool retryable(int result, const char* what);

    ssl_st* ssl = nullptr;
    bool server;
    bool connected = false;
    bool wantWrite = false;
    bool closed = false;
    bool readMayHaveMore = false;
    std::vector<unsigned char> pending;
    std::string reason;
};
