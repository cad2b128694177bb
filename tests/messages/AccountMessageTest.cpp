#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/UserAccountRequest.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

TEST(LoginRequest, BuildsTheLayoutAndAcceptsOnlyIt) {
    const auto message = LoginRequest::newInstance("ab", "xyz");
    ASSERT_TRUE(message);
    EXPECT_EQ(hex(message->write()), "09 09 07 02 03 61 62 78 79 7A");
    EXPECT_EQ(typeid(*message), typeid(LoginRequest));
    EXPECT_EQ(hex(LoginRequest::newInstance("", "")->write()), "09 09 07 00 00");

    EXPECT_FALSE(LoginRequest::validate(bytes("09 09 08 02 03 61 62 78 79 7A")));
    EXPECT_FALSE(LoginRequest::validate(bytes("09 09 07 02 03 61 62 78 79 7A 00")));
    EXPECT_FALSE(LoginRequest::validate(bytes("09 09 07")));
    EXPECT_TRUE(LoginRequest::newInstance(std::string(255, 'u'), std::string(255, 'p')));
    EXPECT_EQ(LoginRequest::newInstance(std::string(256, 'u'), ""), nullptr);
    EXPECT_EQ(LoginRequest::newInstance("", std::string(256, 'p')), nullptr);
}

TEST(LoginRequest, GettersReadOnePositionLowerThanTheLayout) {
    static_assert(
        LoginRequest::MagicBytePosition == 1 && LoginRequest::UsernameLengthPosition == 2 &&
        LoginRequest::PasswordLengthPosition == 3 && LoginRequest::UsernameStartPosition == 4);
    const auto message = LoginRequest::read(bytes("09 09 07 02 03 61 62 78 79 7A"));
    ASSERT_TRUE(message);
    const auto& login = dynamic_cast<const LoginRequest&>(*message);
    // Length 7 from the magic byte, read from the password length onwards.
    EXPECT_EQ(login.getUsername(), std::string("\x03"
                                               "abxyz\0",
                                               7));
    // Length 2 from the username length, read from 4 + 7, past the end.
    EXPECT_EQ(login.getPassword(), std::string(2, '\0'));
}

TEST(UserAccountRequest, ProducesTheLoginSubMessageOnly) {
    const Bytes login = bytes("09 09 07 01 00 61");
    const auto message = UserAccountRequest::read(login);
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(LoginRequest));
    EXPECT_EQ(message->write(), login);
    EXPECT_EQ(UserAccountRequest::read(bytes("09 05 07 00 00")), nullptr);
    EXPECT_EQ(UserAccountRequest::buildSubMessage(bytes("09 05 07 00 00")), nullptr);
}

TEST(LoginResponse, CarriesOneOfThreeResults) {
    const auto message = LoginResponse::read(bytes("0F 01"));
    ASSERT_TRUE(message);
    EXPECT_EQ(dynamic_cast<const LoginResponse&>(*message).getResult(), LoginResponse::Success);
    EXPECT_EQ(LoginResponse::read(bytes("0F 03")), nullptr);
    EXPECT_EQ(LoginResponse::read(bytes("0F 01 00")), nullptr);
    EXPECT_EQ(hex(LoginResponse::newInstance(LoginResponse::TooManyConnections)->write()), "0F 02");
    EXPECT_EQ(LoginResponse::newInstance(static_cast<LoginResponse::Result>(3)), nullptr);
}

TEST(LogPushRequest, CarriesOnOrOff) {
    const auto message = LogPushRequest::read(bytes("04 01"));
    ASSERT_TRUE(message);
    EXPECT_TRUE(dynamic_cast<const LogPushRequest&>(*message).getValue());
    EXPECT_EQ(LogPushRequest::read(bytes("04 02")), nullptr);
    EXPECT_EQ(LogPushRequest::read(bytes("04 01 00")), nullptr);
    EXPECT_EQ(hex(LogPushRequest::newInstance(false)->write()), "04 00");
    EXPECT_EQ(hex(LogPushRequest::newInstance(true)->write()), "04 01");
}

TEST(ErrorResponse, CarriesAChannelIdOnlyForGetAndSetRequests) {
    EXPECT_EQ(hex(ErrorResponse::newInstance(2, 5, 0x102)->write()), "1F 02 05 02 01 00 00");
    EXPECT_EQ(hex(ErrorResponse::newInstance(0, 5, 9)->write()), "1F 00 05 09 00 00 00");
    EXPECT_EQ(hex(ErrorResponse::newInstance(3, 5, 0x102)->write()), "1F 03 05");

    EXPECT_EQ(ErrorResponse::read(bytes("1F 00 05")), nullptr);
    EXPECT_EQ(ErrorResponse::read(bytes("1F 02 05 01 00 00")), nullptr);
    EXPECT_EQ(ErrorResponse::read(bytes("1F 03")), nullptr);
    const auto plain = ErrorResponse::read(bytes("1F 03 05"));
    ASSERT_TRUE(plain);
    EXPECT_EQ(dynamic_cast<const ErrorResponse&>(*plain).getChannelId(), 0u);
}

TEST(ErrorResponse, AcceptsTrailingBytesAndReadsThemAsTheChannelId) {
    const auto trailing = ErrorResponse::read(bytes("1F 03 05 AA BB"));
    ASSERT_TRUE(trailing);
    const auto& error = dynamic_cast<const ErrorResponse&>(*trailing);
    EXPECT_EQ(error.getTriggeringOpCode(), 3);
    EXPECT_EQ(error.getReasonCode(), 5);
    EXPECT_EQ(error.getChannelId(), 0xBBAAu);

    const auto afterId = ErrorResponse::read(bytes("1F 00 07 04 03 02 01 FF"));
    ASSERT_TRUE(afterId);
    EXPECT_EQ(dynamic_cast<const ErrorResponse&>(*afterId).getChannelId(), 0x01020304u);
}
