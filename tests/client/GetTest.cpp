#include <gtest/gtest.h>

#include "chanlink/client/ClientGetManager.h"
#include "chanlink/client/GetOutcomeTransform.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/SetResponse.h"
#include "support/Bytes.h"
#include "support/RecordingReceiver.h"
#include "support/SentMessages.h"

using testing_support::bytes;
using testing_support::RecordingReceiver;
using testing_support::SentMessages;
using Outcomes = RecordingReceiver<GetOutcome>;
using Strings = std::vector<std::string>;

namespace {

GetOutcome value(unsigned int channel, unsigned char data) {
    return GetOutcome(channel, {}, {data}, 255);
}

std::shared_ptr<const Message> getResponse(const std::vector<unsigned int>& channels) {
    std::vector<std::shared_ptr<const ChannelValue>> values;
    for (unsigned int channel : channels) {
        values.push_back(std::make_shared<ChannelValue>(channel, std::vector<unsigned char>{0xA0},
                                                        std::vector<unsigned char>{0x10, 0x20}));
    }
    return GetResponse::newInstance(values);
}

}  // namespace

TEST(GetOutcome, SucceedsOnlyWith255AndComparesEveryField) {
    EXPECT_TRUE(GetOutcome(1, 255).getSuccess());
    EXPECT_FALSE(GetOutcome(1, 0).getSuccess());
    EXPECT_NE(GetOutcome(1, {0x01}, {0x02}, 255), GetOutcome(1, {0x09}, {0x02}, 255));
    const GetOutcome fromValue(ChannelValue(5, {0x01}, {0x02, 0x03}));
    EXPECT_EQ(fromValue, GetOutcome(5, {0x01}, {0x02, 0x03}, 255));
    EXPECT_EQ(fromValue.getChannelValue(), ChannelValue(5, {0x01}, {0x02, 0x03}));
}

TEST(ClientGetManager, AnswersEachWaitingReceiverOnceWithTheFirstOutcome) {
    auto sent = std::make_shared<SentMessages>();
    ClientGetManager manager(sent);
    auto first = std::make_shared<Outcomes>();
    auto second = std::make_shared<Outcomes>();
    manager.requestChannel(5, first);
    manager.requestChannel(5, second);
    manager.requestChannel(5, first);  // already waiting: not added twice
    EXPECT_EQ(sent->take(), Strings(3, "00 01 00 05 00 00 00"));  // never batched

    manager.receive(value(6, 1));  // nobody waits for 6
    EXPECT_TRUE(manager.isPending(5));
    manager.receive(value(5, 1));
    manager.receive(value(5, 2));  // the wait has ended
    EXPECT_EQ(first->received(), std::vector<GetOutcome>{value(5, 1)});
    EXPECT_EQ(second->received(), std::vector<GetOutcome>{value(5, 1)});
    EXPECT_FALSE(manager.isPending(5));
}

TEST(ClientGetManager, AReceiverAskingAgainStartsANewWait) {
    auto sent = std::make_shared<SentMessages>();
    auto manager = std::make_shared<ClientGetManager>(sent);
    struct AskAgain : Receiver<GetOutcome> {
        void receive(const GetOutcome& outcome) override {
            ++calls;
            manager->requestChannel(outcome.getChannelId(), self.lock());
        }
        std::shared_ptr<ClientGetManager> manager;
        std::weak_ptr<AskAgain> self;
        int calls = 0;
    };
    auto again = std::make_shared<AskAgain>();
    again->manager = manager;
    again->self = again;
    manager->requestChannel(3, again);
    manager->receive(value(3, 1));
    EXPECT_EQ(again->calls, 1);
    EXPECT_TRUE(manager->isPending(3));
    EXPECT_EQ(sent->take().size(), 2u);
    again->manager.reset();
}

TEST(ClientGetManager, AsksAgainForPendingChannelsAfterEverySuccessfulLogin) {
    auto sent = std::make_shared<SentMessages>();
    ClientGetManager manager(sent);
    manager.requestChannel(9, std::make_shared<Outcomes>());
    manager.requestChannel(2, std::make_shared<Outcomes>());
    sent->take();
    manager.receive(LoginOutcome(LoginOutcome::Failure));
    manager.receive(LoginOutcome(LoginOutcome::Pending));
    EXPECT_TRUE(sent->take().empty());
    manager.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_EQ(sent->take(), (Strings{"00 01 00 02 00 00 00", "00 01 00 09 00 00 00"}));
    EXPECT_TRUE(manager.isPending(2));
}

TEST(GetOutcomeTransform, TurnsValuesAndGetErrorsIntoOutcomes) {
    auto outcomes = std::make_shared<Outcomes>();
    GetOutcomeTransform transform(outcomes);

    transform.receive(*getResponse({1, 2, 3}));
    ASSERT_EQ(outcomes->count(), 3u);
    for (unsigned int i = 0; i < 3; ++i) {
        EXPECT_EQ(outcomes->received()[i], GetOutcome(i + 1, {0xA0}, {0x10, 0x20}, 255));
    }
    outcomes->clear();

    transform.receive(*ErrorResponse::newInstance(2, 1, 9));  // about a set: not ours
    transform.receive(*SetResponse::newInstance(9));
    transform.receive(Message(bytes("0B 00 00")));  // a plain message, not a GetResponse
    EXPECT_EQ(outcomes->count(), 0u);

    transform.receive(*ErrorResponse::newInstance(0, 1, 9));
    transform.receive(*ErrorResponse::newInstance(0, 255, 4));  // no special case for 255
    EXPECT_EQ(outcomes->received(),
              (std::vector<GetOutcome>{GetOutcome(9, 1), GetOutcome(4, 255)}));
}

TEST(ClientGetManager, ACancelledReceiverIsForgottenAndTheLastOneTakesTheChannelWithIt) {
    auto sent = std::make_shared<SentMessages>();
    ClientGetManager manager(sent);
    auto kept = std::make_shared<Outcomes>();
    auto cancelled = std::make_shared<Outcomes>();
    manager.requestChannel(5, kept);
    manager.requestChannel(5, cancelled);
    manager.cancelRequest(5, cancelled);
    manager.cancelRequest(5, cancelled);  // no longer waiting: nothing happens
    manager.cancelRequest(6, kept);       // not waiting for 6
    manager.receive(value(5, 1));
    EXPECT_EQ(kept->received(), std::vector<GetOutcome>{value(5, 1)});
    EXPECT_TRUE(cancelled->received().empty());

    for (int i = 0; i < 50; ++i) {  // as repeated timeouts on a silent channel do
        auto waiting = std::make_shared<Outcomes>();
        manager.requestChannel(9, waiting);
        manager.cancelRequest(9, waiting);
    }
    EXPECT_FALSE(manager.isPending(9));
    EXPECT_EQ(manager.pendingChannelCount(), 0u);
    sent->take();
    manager.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_TRUE(sent->take().empty());  // a forgotten channel is not asked for again
}
