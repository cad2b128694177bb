#pragma once

#include <memory>
#include <string>

#include "chanlink/flow/Receiver.h"
#include "chanlink/transport/ConnectionOutcome.h"
#include "chanlink/transport/PollableTransport.h"
#include "chanlink/transport/TCPTransport.h"
#include "chanlink/transport/Transport.h"

class TLSContext;
class TLSStream;

// A Transport that carries the protocol's bytes inside TLS over a TCP
// connection. It reports the states a TCP transport does: Connecting while
// the TCP connect or the handshake is under way, Connected once the
// handshake is done, ConnectionFailed when either fails (the reason in
// getFailureReason()), Closed after close(), the peer's close or an error.
// read, write and tick never wait; TransportPoll::of() tells an event loop
// what to wait for, including decrypted input already in hand.
class TLSTransport : public Transport, public PollableTransport {
public:
    // Closes the connection, reporting Closed to the receiver.
    ~TLSTransport() override;

    TLSTransport(const TLSTransport&) = delete;
    TLSTransport& operator=(const TLSTransport&) = delete;

    // Decrypted bytes, 0 when none are waiting or the state is not
    // Connected. While Connecting it first makes what progress it can.
    int read(void* buffer, int length) override;
    // Bytes taken, 0 when the connection takes none now. Never raises
    // SIGPIPE.
    int write(const void* buffer, int length) override;
    // Progress with the connect, the handshake and buffered output.
    void tick() override;

    ConnectionOutcome::ConnectionStates state() const { return connectionState; }
    // Why the connection failed or ended, one line ("certificate verify
    // failed: certificate has expired"); empty when it did not.
    const std::string& getFailureReason() const { return failureReason; }
    // Replaces the receiver; the current state is not reported to it.
    void setReceiver(std::shared_ptr<Receiver<ConnectionOutcome>> receiver);

    TransportPoll pollState() const override;
    // Sends close_notify if it can, closes the socket and reports Closed.
    void close() override;

protected:
    explicit TLSTransport(std::shared_ptr<Receiver<ConnectionOutcome>> receiver);

    // Moves a connection in Connecting forward; the client's connects first.
    virtual void progress();
    // Sets up the handshake on the TCP connection, which must be connected;
    // the next progress() takes its first step.
    void startHandshake(const TLSContext& context, const std::string& peerName);
    // Ends a connect or handshake: closes the socket, reports ConnectionFailed.
    void fail(std::string reason);
    void progressState(ConnectionOutcome::ConnectionStates state);
    // Drops the stream and the TCP connection, for a fresh connect.
    void reset(std::shared_ptr<TCPTransport> connection);
    bool handshakeStarted() const { return stream != nullptr; }

private:
    // Closes after an I/O error or the peer's close.
    void endIfClosed();

    std::shared_ptr<TCPTransport> tcp;
    std::unique_ptr<TLSStream> stream;
    ConnectionOutcome::ConnectionStates connectionState = ConnectionOutcome::NotConnected;
    std::shared_ptr<Receiver<ConnectionOutcome>> receiver;
    std::string failureReason;
};
