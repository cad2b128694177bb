#pragma once

#include <memory>
#include <string>
#include <vector>

#include "chanlink/messages/UserAccountRequest.h"

// Client to server: log in with a username and a password (sent in clear).
//
// Payload layout:
//   0  opcode 9
//   1  sub-message type 9
//   2  magic byte 7
//   3  username length in bytes, 8-bit
//   4  password length in bytes, 8-bit
//   5  username bytes, then password bytes, no terminators
class LoginRequest : public UserAccountRequest {
public:
    static constexpr unsigned char MagicByte = 7;

    // These positions are one lower than the layout above, so the getters read
    // the username length from the magic byte and so on. Deployed peers depend
    // on exactly this reading, so it is kept. validate and newInstance follow
    // the layout and do not use these constants.
    static constexpr unsigned int MagicBytePosition = 1;
    static constexpr unsigned int UsernameLengthPosition = 2;
    static constexpr unsigned int PasswordLengthPosition = 3;
    static constexpr unsigned int UsernameStartPosition = 4;

    // Stores the payload unchecked.
    explicit LoginRequest(std::vector<unsigned char> payload);

    // Bytes 9, 9, 7, then exactly username length + password length bytes
    // after the two length bytes. Empty username and password are allowed.
    static bool validate(const std::vector<unsigned char>& payload);
    // A LoginRequest of the payload, or an empty pointer when validate rejects it.
    static std::shared_ptr<const Message> read(const std::vector<unsigned char>& payload);
    // The message; an empty pointer when the username or password is longer
    // than 255 bytes.
    static std::shared_ptr<const Message> newInstance(const std::string& username,
                                                      const std::string& password);

    // The string whose length is the byte at UsernameLengthPosition, read from
    // UsernameStartPosition (bytes past the end read as NUL characters).
    std::string getUsername() const;
    // The string whose length is the byte at PasswordLengthPosition, read from
    // UsernameStartPosition plus the byte at UsernameLengthPosition.
    std::string getPassword() const;
};
