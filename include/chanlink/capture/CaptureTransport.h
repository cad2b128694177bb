#pragma once

#include <memory>

#include "chanlink/capture/CaptureStream.h"
#include "chanlink/capture/LoginRedactor.h"
#include "chanlink/capture/PcapWriter.h"
#include "chanlink/transport/PollableTransport.h"
#include "chanlink/transport/Transport.h"

// Wraps a transport and records what it reads and writes as one TCP stream
// of a PcapWriter's file, passing everything through unchanged.
//
// The stream starts when the inner transport is first seen connected, with
// the socket's real addresses and ports (a transport without a socket gets
// 127.0.0.1 and made-up ports), and ends with the connection or with this
// object. Login passwords sent by the client are recorded as '*' bytes (see
// LoginRedactor) unless credentials are captured.
//
//     std::string error;
//     auto file = PcapWriter::open("session.pcap", error);
//     auto transport = std::make_shared<CaptureTransport>(
//         tcp, file, CaptureStream::Side::Client);
class CaptureTransport : public Transport, public PollableTransport {
public:
    // side: which end of the connection this one is; the client connected.
    CaptureTransport(std::shared_ptr<Transport> inner, std::shared_ptr<PcapWriter> writer,
                     CaptureStream::Side side, bool captureCredentials = false);
    // Records the end of the stream, closed by this side, if not yet recorded.
    ~CaptureTransport() override;

    CaptureTransport(const CaptureTransport&) = delete;
    CaptureTransport& operator=(const CaptureTransport&) = delete;

    int read(void* buffer, int length) override;
    int write(const void* buffer, int length) override;
    void tick() override;
    TransportPoll pollState() const override;
    void close() override;

private:
    // Starts the stream once the inner transport is connected, or at once
    // when bytesMoved (bytes cannot move without a connection).
    void startWhenConnected(bool bytesMoved);
    // Records bytes this side sent (sent) or received.
    void record(bool sent, const unsigned char* bytes, int count);
    // Records the end once the inner transport has ended.
    void noticeEnd();
    void finish(CaptureStream::Side closer);

    std::shared_ptr<Transport> inner;
    std::shared_ptr<PcapWriter> writer;
    CaptureStream::Side side;
    // Only for the client's bytes; empty when credentials are captured.
    std::unique_ptr<LoginRedactor> redactor;
    std::unique_ptr<CaptureStream> stream;
};
