#include <gtest/gtest.h>

#include <set>
#include <string>

#include "chanlink/messages/ReasonCode.h"

TEST(ReasonCode, EveryDefinedCodeIsDistinctAndNamed) {
    const unsigned char codes[] = {ReasonCode::Success,         ReasonCode::SetRequestNotBuilt,
                                   ReasonCode::BitBeyondData,   ReasonCode::Discarded,
                                   ReasonCode::ConnectionLost,  ReasonCode::NotConnected,
                                   ReasonCode::NotLoggedIn,     ReasonCode::UnknownChannel,
                                   ReasonCode::ReadOnlyChannel, ReasonCode::WrongDataSize};
    std::set<unsigned char> distinct;
    std::set<std::string> names;
    for (unsigned char code : codes) {
        distinct.insert(code);
        ASSERT_NE(ReasonCode::name(code), nullptr) << int(code);
        names.insert(ReasonCode::name(code));
    }
    EXPECT_EQ(distinct.size(), std::size(codes));
    EXPECT_EQ(names.size(), std::size(codes));
    EXPECT_STREQ(ReasonCode::name(ReasonCode::UnknownChannel), "UnknownChannel");
    EXPECT_EQ(ReasonCode::name(77), nullptr);
    EXPECT_STREQ(ReasonCode::describe(77), "device-specific reason");
    EXPECT_STREQ(ReasonCode::name(133), "NotConnected");
}

TEST(ReasonCode, MadeLocallyOnlyForTheLibrarysOwnCodes) {
    for (unsigned char code :
         {ReasonCode::SetRequestNotBuilt, ReasonCode::BitBeyondData, ReasonCode::Discarded,
          ReasonCode::ConnectionLost, ReasonCode::NotConnected}) {
        EXPECT_TRUE(ReasonCode::madeLocally(code)) << int(code);
    }
    for (unsigned char code : {0, 16, 19, 42, 127, 144, 254, 255}) {
        EXPECT_FALSE(ReasonCode::madeLocally(code)) << int(code);
    }
}
