#include "chanlink/messages/LoginResponse.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

LoginResponse::LoginResponse(std::vector<unsigned char> payload) : Message(std::move(payload)) {}

bool LoginResponse::validate(const std::vector<unsigned char>& payload) {
    const ByteVectorReader reader(payload);
    return payload.size() == 2 && reader.readUint8At(OpCodePosition) == Code &&
           reader.readUint8At(ResultPosition) < 3;
}

std::shared_ptr<const Message> LoginResponse::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<LoginResponse>(payload);
}

std::shared_ptr<const Message> LoginResponse::newInstance(Result result) {
    std::vector<unsigned char> payload = newFrame(Code);
    ByteVectorWriter(payload).pushBackUint8(result);
    return readBuilt<LoginResponse>(std::move(payload));
}

LoginResponse::Result LoginResponse::getResult() const {
    return static_cast<Result>(ByteVectorReader(getPayload()).readUint8At(ResultPosition));
}
