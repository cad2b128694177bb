#include "chanlink/messages/LoginRequest.h"

#include <utility>

#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"

#include "ValidatedRead.h"

LoginRequest::LoginRequest(std::vector<unsigned char> payload)
    : UserAccountRequest(std::move(payload)) {}

bool LoginRequest::validate(const std::vector<unsigned char>& payload) {
    ByteVectorReader reader(payload);
    if (reader.readUint8() != Code || reader.readUint8() != LoginSubMessageType ||
        reader.readUint8() != MagicByte) {
        return false;
    }
    const int usernameLength = reader.readUint8();
    const int passwordLength = reader.readUint8();
    return reader.remainingBytes() == usernameLength + passwordLength;
}

std::shared_ptr<const Message> LoginRequest::read(const std::vector<unsigned char>& payload) {
    return chanlink_detail::readValidated<LoginRequest>(payload);
}

std::shared_ptr<const Message> LoginRequest::newInstance(const std::string& username,
                                                         const std::string& password) {
    std::vector<unsigned char> payload = newFrame(Code);
    payload.reserve(5 + username.size() + password.size());
    ByteVectorWriter writer(payload);
    writer.pushBackUint8(LoginSubMessageType);
    writer.pushBackUint8(MagicByte);
    // Lengths over 255 are truncated here; validate then rejects the payload.
    writer.pushBackUint8(static_cast<unsigned char>(username.size()));
    writer.pushBackUint8(static_cast<unsigned char>(password.size()));
    writer.pushBackString(username);
    writer.pushBackString(password);
    return readBuilt<LoginRequest>(std::move(payload));
}

std::string LoginRequest::getUsername() const {
    const ByteVectorReader reader(getPayload());
    return reader.readStringAt(UsernameStartPosition, reader.readUint8At(UsernameLengthPosition));
}

std::string LoginRequest::getPassword() const {
    const ByteVectorReader reader(getPayload());
    const unsigned int usernameLength = reader.readUint8At(UsernameLengthPosition);
    return reader.readStringAt(UsernameStartPosition + usernameLength,
                               reader.readUint8At(PasswordLengthPosition));
}
