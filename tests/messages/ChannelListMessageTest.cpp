#include <gtest/gtest.h>

#include <typeinfo>

#include "chanlink/messages/ChannelListMessage.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

TEST(Message, HoldsItsPayloadOpCodeFirst) {
    const Message fromCode(OpCode{11});
    EXPECT_EQ(fromCode.write(), bytes("0B"));
    EXPECT_EQ(fromCode.getOpCode(), 11);
    const Message fromBytes(bytes("0C 01 02"));
    EXPECT_EQ(fromBytes.getPayload(), bytes("0C 01 02"));
    EXPECT_EQ(Message(fromBytes).write(), bytes("0C 01 02"));
    EXPECT_EQ(Message(Bytes{}).getOpCode(), 0);
}

TEST(ChannelListMessage, AcceptsExactlyTheCountedIdsAndNothingElse) {
    EXPECT_TRUE(GetRequest::validate(bytes("00 00 00")));
    EXPECT_FALSE(GetRequest::validate(bytes("00 00")));
    EXPECT_FALSE(GetRequest::validate(Bytes{}));
    EXPECT_TRUE(GetRequest::validate(bytes("00 01 00 05 00 00 00")));
    EXPECT_FALSE(GetRequest::validate(bytes("00 01 00 05 00 00 00 00")));
    EXPECT_FALSE(GetRequest::validate(bytes("00 01 00 05 00 00")));
    EXPECT_FALSE(GetRequest::validate(bytes("0D 01 00 05 00 00 00")));
    EXPECT_TRUE(SubscriptionResponse::validate(bytes("0D 01 00 05 00 00 00")));
    EXPECT_FALSE(ChannelListMessage::validate(4, bytes("03 00 00")));
}

TEST(ChannelListMessage, BuildsAndReadsBackIdsInOrderWithDuplicates) {
    EXPECT_EQ(hex(GetRequest::newInstance({5, 6})->write()), "00 02 00 05 00 00 00 06 00 00 00");
    const auto message = SubscriptionResponse::newInstance({7, 1, 7, 0xFFFFFFFFu});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->getOpCode(), SubscriptionResponse::Code);
    EXPECT_EQ(dynamic_cast<const ChannelListMessage&>(*message).getChannelList(),
              (std::vector<unsigned int>{7, 1, 7, 0xFFFFFFFFu}));
    EXPECT_TRUE(
        dynamic_cast<const GetRequest&>(*GetRequest::newInstance({})).getChannelList().empty());
}

TEST(ChannelListMessage, SubscriptionAndUnsubscriptionShareOpCodeAndBytes) {
    static_assert(SubscriptionRequest::Code == 3 && UnsubscriptionRequest::Code == 3);
    const auto subscribe = SubscriptionRequest::newInstance({1, 2});
    const auto unsubscribe = UnsubscriptionRequest::newInstance({1, 2});
    ASSERT_TRUE(subscribe && unsubscribe);
    EXPECT_EQ(subscribe->write(), unsubscribe->write());
    EXPECT_TRUE(SubscriptionRequest::validate(unsubscribe->write()));
    EXPECT_TRUE(UnsubscriptionRequest::validate(subscribe->write()));
    // Each read makes its own class of the same bytes.
    EXPECT_EQ(typeid(*SubscriptionRequest::read(unsubscribe->write())),
              typeid(SubscriptionRequest));
    EXPECT_EQ(typeid(*UnsubscriptionRequest::read(subscribe->write())),
              typeid(UnsubscriptionRequest));
}

TEST(ChannelListMessage, MoreIdsThanTheCountHoldsGiveNoMessage) {
    std::vector<unsigned int> ids(65535, 9);
    const auto largest = GetRequest::newInstance(ids);
    ASSERT_TRUE(largest);
    EXPECT_EQ(largest->write().size(), 3u + 4u * 65535u);
    ids.push_back(9);
    EXPECT_EQ(GetRequest::newInstance(ids), nullptr);
    EXPECT_EQ(UnsubscriptionRequest::newInstance(ids), nullptr);
}
