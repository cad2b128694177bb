#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/transport/ReadTransport.h"
#include "chanlink/wire/Decoder.h"

// Where bytes become messages: reads what the transport has, cuts it into
// frames, turns each frame into a typed message and hands it on.
class IncomingEndPoint {
public:
    // maxInputCapacity: the most bytes read in one doRead. None of the
    // pointers may be empty.
    IncomingEndPoint(unsigned int maxInputCapacity, std::shared_ptr<Decoder> decoder,
                     std::shared_ptr<ReadTransport> readTransport,
                     std::shared_ptr<MessageProductionChain> messageProductionChain,
                     std::shared_ptr<Receiver<Message>> messageDistributor);
    virtual ~IncomingEndPoint();

    IncomingEndPoint(const IncomingEndPoint&) = delete;
    IncomingEndPoint& operator=(const IncomingEndPoint&) = delete;

    // One read of at most maxInputCapacity bytes. If any came, every frame
    // they complete is produced and handed to the distributor in stream
    // order, within this call; frames for which no message is produced are
    // dropped without stopping the ones behind them. A read that brings
    // nothing does nothing else.
    virtual void doRead();
    // Drops a half-received frame and frames not yet handed on. Bytes still
    // waiting in the transport are read on the next doRead.
    virtual void reset();

    // Bytes received and not yet cut into frames: a frame still open. Read
    // by the waiting helpers that bound what a client holds undecoded.
    std::size_t undecodedBytes() const { return decoder ? decoder->bufferedBytes() : 0; }
    // Where produced messages go.
    const std::shared_ptr<Receiver<Message>>& getMessageDistributor() const {
        return messageDistributor;
    }

private:
    unsigned int maxInputCapacity;
    // Part of the class's fixed layout; every doRead reads into a buffer of
    // its own.
    std::vector<unsigned char> inputBuffer;
    std::shared_ptr<Decoder> decoder;
    std::shared_ptr<ReadTransport> readTransport;
    std::shared_ptr<MessageProductionChain> messageProductionChain;
    std::shared_ptr<Receiver<Message>> messageDistributor;
};
