#include <gtest/gtest.h>

#include <typeinfo>

#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;

namespace {

std::shared_ptr<const Message> alwaysEmpty(const Bytes&) {
    return nullptr;
}

}  // namespace

TEST(MessageProductionChain, ClientChainProducesOnlyValidResponses) {
    auto chain = MessageProductionChain::newClientInstance();
    EXPECT_EQ(chain->size(), 5u);
    const auto message = chain->produceMessageFromFrame(bytes("0B 00 00"));
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(GetResponse));
    EXPECT_TRUE(dynamic_cast<const GetResponse&>(*message).getChannelValues().empty());
    EXPECT_EQ(chain->produceMessageFromFrame(bytes("0B 00 00 FF")), nullptr);
    EXPECT_EQ(chain->produceMessageFromFrame(bytes("00 00 00")), nullptr);
}

TEST(MessageProductionChain, SecondProducerForAnOpCodeReplacesTheFirst) {
    MessageProductionChain chain;
    chain.addProducer(13, SubscriptionResponse::read);
    ASSERT_TRUE(chain.produceMessageFromFrame(bytes("0D 00 00")));
    chain.addProducer(13, alwaysEmpty);
    EXPECT_EQ(chain.getProducer(13), &alwaysEmpty);
    EXPECT_EQ(chain.produceMessageFromFrame(bytes("0D 00 00")), nullptr);
    EXPECT_EQ(chain.size(), 1u);

    // Opcode 3 holds one of the two classes that share it.
    chain.addProducer(3, SubscriptionRequest::read);
    chain.addProducer(3, UnsubscriptionRequest::read);
    const auto message = chain.produceMessageFromFrame(bytes("03 00 00"));
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(UnsubscriptionRequest));
}

TEST(MessageProductionChain, UnknownOpCodeGivesNothingAndLeavesOneEmptyEntry) {
    auto chain = MessageProductionChain::newClientInstance();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(chain->produceMessageFromFrame(bytes("42 00 00")), nullptr);
    }
    EXPECT_EQ(chain->size(), 6u);
    EXPECT_EQ(chain->getProducer(0x42), nullptr);
    for (int code = 0; code < 256; ++code) {
        chain->produceMessageFromFrame(Bytes{static_cast<unsigned char>(code)});
    }
    EXPECT_EQ(chain->size(), 256u);
    // An empty frame has no opcode: nothing is produced and no entry made.
    MessageProductionChain empty;
    EXPECT_EQ(empty.produceMessageFromFrame(Bytes{}), nullptr);
    EXPECT_EQ(empty.size(), 0u);
}

TEST(MessageProductionChain, DeviceChainMakesLoginRequestsOfAccountRequests) {
    auto chain = MessageProductionChain::newDeviceInstance();
    EXPECT_EQ(chain->size(), 5u);
    const auto message = chain->produceMessageFromFrame(bytes("09 09 07 00 00"));
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(LoginRequest));
}
