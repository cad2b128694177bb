#include "chanlink/endpoint/EndPointBuilder.h"

namespace {

bool positiveAsSigned(unsigned int capacity) {
    return static_cast<int>(capacity) > 0;
}

}  // namespace

EndPointBuilder::EndPointBuilder()
    : decoder(std::make_shared<Decoder>()), encoder(std::make_shared<Encoder>()) {}

EndPointBuilder::~EndPointBuilder() = default;

EndPointBuilder& EndPointBuilder::setMaxInputCapacity(unsigned int capacity) {
    maxInputCapacity = capacity;
    return *this;
}

EndPointBuilder& EndPointBuilder::setMaxOutputCapacity(unsigned int capacity) {
    maxOutputCapacity = capacity;
    return *this;
}

EndPointBuilder& EndPointBuilder::setDecoder(std::shared_ptr<Decoder> newDecoder) {
    decoder = std::move(newDecoder);
    return *this;
}

EndPointBuilder& EndPointBuilder::setReadTransport(std::shared_ptr<ReadTransport> transport) {
    readTransport = std::move(transport);
    return *this;
}

EndPointBuilder& EndPointBuilder::setWriteTransport(std::shared_ptr<WriteTransport> transport) {
    writeTransport = std::move(transport);
    return *this;
}

EndPointBuilder& EndPointBuilder::setMessageProductionChain(
    std::shared_ptr<MessageProductionChain> chain) {
    messageProductionChain = std::move(chain);
    return *this;
}

EndPointBuilder& EndPointBuilder::setMessageDistributor(
    std::shared_ptr<Receiver<Message>> distributor) {
    messageDistributor = std::move(distributor);
    return *this;
}

EndPointBuilder& EndPointBuilder::setEncoder(std::shared_ptr<Encoder> newEncoder) {
    encoder = std::move(newEncoder);
    return *this;
}

std::shared_ptr<IncomingEndPoint> EndPointBuilder::buildIncomingEndPoint() {
    if (!positiveAsSigned(maxInputCapacity) || !decoder || !readTransport ||
        !messageProductionChain || !messageDistributor) {
        return nullptr;
    }
    return std::make_shared<IncomingEndPoint>(maxInputCapacity, decoder, readTransport,
                                              messageProductionChain, messageDistributor);
}

std::shared_ptr<OutgoingEndPoint> EndPointBuilder::buildOutgoingEndPoint() {
    if (!positiveAsSigned(maxOutputCapacity) || !writeTransport || !encoder || !messageQueue) {
        return nullptr;
    }
    return std::make_shared<OutgoingEndPoint>(static_cast<int>(maxOutputCapacity), writeTransport,
                                              encoder, messageQueue);
}
