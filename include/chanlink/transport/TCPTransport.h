#pragma once

#include <memory>

#include "chanlink/flow/Receiver.h"
#include "chanlink/transport/ConnectionOutcome.h"
#include "chanlink/transport/Transport.h"

class TCPServerTransportBuilder;

// A Transport over one non-blocking TCP socket. read and write never wait and
// never return a negative count; every change of the connection state is
// reported once to the optional receiver.
//
// A descriptor counts as open only when it is greater than 0: descriptor 0 is
// treated like -1 throughout, so a socket that came back as 0 counts as a
// failure. Deployed code depends on this, so it is kept.
class TCPTransport : public Transport {
public:
    // Stores the three; the initial state is not reported.
    TCPTransport(int socket, ConnectionOutcome::ConnectionStates state,
                 std::shared_ptr<Receiver<ConnectionOutcome>> receiver);
    // Closes the socket and reports Closed (unless already Closed) to the
    // receiver, which is still held at that point.
    ~TCPTransport() override;

    TCPTransport(const TCPTransport&) = delete;
    TCPTransport& operator=(const TCPTransport&) = delete;

    // Wraps a newly made transport. If the shared ownership cannot be
    // allocated the transport is deleted and the failure propagates.
    static std::shared_ptr<TCPTransport> createShared(TCPTransport* transport);

    // Bytes received, 0 when none are waiting or the state is not Connected.
    // The peer's end of stream or a socket error closes the transport (Closed
    // is reported) and returns 0. A length of 0 or less, or a null buffer,
    // returns 0 without touching the socket.
    int read(void* buffer, int length) override;
    // Nothing beyond the base's hook while connected; dropped connections are
    // noticed by read and write.
    void tick() override;
    virtual ConnectionOutcome::ConnectionStates state() const;
    // Closes the socket if open and reports Closed (nothing if already Closed).
    virtual void close();
    // The descriptor, -1 when none is open. Applications may poll it for
    // readability and tick their session when it is readable.
    virtual int getSocket() const;
    // Bytes accepted by the socket, 0 when it takes none now or the state is
    // not Connected. Never raises SIGPIPE. A socket error other than EAGAIN
    // closes the transport. A length of 0 or less, or a null buffer, returns
    // 0 without touching the socket.
    int write(const void* buffer, int length) override;

    // Replaces the receiver; the current state is not reported to it.
    void setReceiver(std::shared_ptr<Receiver<ConnectionOutcome>> receiver);

protected:
    // Stores and reports a state that differs from the current one; a repeat
    // does nothing, so a receiver never sees the same state twice in a row.
    void progressState(const ConnectionOutcome& outcome);
    // Closes the descriptor and sets it to -1; the result of the system call.
    int closeImpl();
    bool setNonBlockingMode();
    // SO_KEEPALIVE with the system's default timings; the setsockopt result.
    int enableKeepAlive();
    // Hook run on each tick while connected; does nothing here.
    void checkForDroppedConnection();
    bool socketOpen() const { return socket > 0; }
    void setSocket(int descriptor) { socket = descriptor; }

private:
    friend class TCPServerTransportBuilder;

    int socket;
    ConnectionOutcome::ConnectionStates connectionState;
    std::shared_ptr<Receiver<ConnectionOutcome>> receiver;
};
