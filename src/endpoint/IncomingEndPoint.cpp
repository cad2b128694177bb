#include "chanlink/endpoint/IncomingEndPoint.h"

#include <algorithm>
#include <climits>
#include <vector>

IncomingEndPoint::IncomingEndPoint(unsigned int maxInputCapacity, std::shared_ptr<Decoder> decoder,
                                   std::shared_ptr<ReadTransport> readTransport,
                                   std::shared_ptr<MessageProductionChain> messageProductionChain,
                                   std::shared_ptr<Receiver<Message>> messageDistributor)
    : maxInputCapacity(maxInputCapacity),
      decoder(std::move(decoder)),
      readTransport(std::move(readTransport)),
      messageProductionChain(std::move(messageProductionChain)),
      messageDistributor(std::move(messageDistributor)) {}

IncomingEndPoint::~IncomingEndPoint() = default;

void IncomingEndPoint::doRead() {
    // A capacity beyond INT_MAX cannot be expressed as a read length; read
    // at most INT_MAX bytes instead of passing a negative length on.
    const int capacity = static_cast<int>(std::min<unsigned int>(maxInputCapacity, INT_MAX));
    std::vector<unsigned char> bytes(static_cast<std::size_t>(capacity));
    const int received = readTransport->read(bytes.data(), capacity);
    if (received <= 0) {
        return;  // frames are looked for only after new bytes arrive
    }
    // A transport claiming more than it was asked for is not believed.
    bytes.resize(static_cast<std::size_t>(received < capacity ? received : capacity));
    decoder->injectBytes(bytes);

    while (decoder->hasFrames()) {
        const std::vector<unsigned char> frame = decoder->extractFrame();
        if (frame.empty()) {
            continue;  // a decoder never queues an empty payload; skip one that would
        }
        const std::shared_ptr<const Message> message =
            messageProductionChain->produceMessageFromFrame(frame);
        if (message) {
            messageDistributor->receive(*message);
        }
    }
}

void IncomingEndPoint::reset() {
    decoder->reset();
}
