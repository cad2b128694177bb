#include <gtest/gtest.h>

#include "chanlink/client/ClientSetManager.h"
#include "chanlink/client/SetOutcomeTransform.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/SetResponse.h"
#include "support/RecordingReceiver.h"
#include "support/SentMessages.h"

using testing_support::RecordingReceiver;
using testing_support::SentMessages;
using Outcomes = RecordingReceiver<SetOutcome>;
using Strings = std::vector<std::string>;

TEST(SetOutcome, OnlyReason255IsSuccess) {
    for (int code = 0; code < 255; ++code) {
        EXPECT_FALSE(SetOutcome(1, static_cast<unsigned char>(code)).getSuccess()) << code;
    }
    EXPECT_TRUE(SetOutcome(1, 255).getSuccess());
}

TEST(ClientSetManager, SendsOneSetAtATimeAndMatchesAnswersByChannel) {
    auto sent = std::make_shared<SentMessages>();
    ClientSetManager manager(sent);
    auto first = std::make_shared<Outcomes>();
    auto second = std::make_shared<Outcomes>();
    auto third = std::make_shared<Outcomes>();
    manager.setChannel(7, {0xAA}, first);
    manager.setChannel(8, {0xBB}, second);
    manager.setChannel(7, {0xCC}, third);
    EXPECT_EQ(sent->take(), Strings{"02 07 00 00 00 01 00 AA"});

    manager.receive(SetOutcome(8, 255));  // not the one in flight: ignored
    EXPECT_TRUE(sent->take().empty());
    EXPECT_EQ(second->count(), 0u);

    manager.receive(SetOutcome(7, 255));
    EXPECT_EQ(first->received(), std::vector<SetOutcome>{SetOutcome(7, 255)});
    EXPECT_EQ(sent->take(), Strings{"02 08 00 00 00 01 00 BB"});
    manager.receive(SetOutcome(8, 4));
    EXPECT_EQ(second->received(), std::vector<SetOutcome>{SetOutcome(8, 4)});
    manager.receive(SetOutcome(7, 255));
    EXPECT_EQ(third->count(), 1u);
    EXPECT_EQ(manager.outstanding(), 0u);
}

TEST(ClientSetManager, UnbuildableDataFailsAtOnceAndTheNextWaitsForTheNextCall) {
    auto sent = std::make_shared<SentMessages>();
    ClientSetManager manager(sent);
    auto outcomes = std::make_shared<Outcomes>();
    manager.setChannel(1, {0x01}, outcomes);
    manager.setChannel(2, std::vector<unsigned char>(65536, 0), outcomes);
    manager.setChannel(3, {0x03}, outcomes);
    sent->take();
    manager.receive(SetOutcome(1, 255));  // frees the slot: 2 fails, 3 waits
    EXPECT_EQ(outcomes->received(),
              (std::vector<SetOutcome>{SetOutcome(1, 255), SetOutcome(2, 1)}));
    EXPECT_TRUE(sent->take().empty());
    EXPECT_EQ(manager.outstanding(), 1u);
    manager.setChannel(4, {0x04}, nullptr);  // the next call sends 3
    EXPECT_EQ(sent->take(), Strings{"02 03 00 00 00 01 00 03"});
}

TEST(ClientSetManager, ResetAndDestructionReportEveryOperationOnceWith131) {
    auto sent = std::make_shared<SentMessages>();
    auto outcomes = std::make_shared<Outcomes>();
    {
        ClientSetManager manager(sent);
        manager.setChannel(1, {0x01}, outcomes);
        manager.setChannel(2, {0x02}, outcomes);
        manager.setChannel(3, {0x03}, outcomes);
        manager.reset();
        EXPECT_EQ(
            outcomes->received(),
            (std::vector<SetOutcome>{SetOutcome(1, 131), SetOutcome(2, 131), SetOutcome(3, 131)}));
        EXPECT_EQ(manager.outstanding(), 0u);
        manager.setChannel(4, {0x04}, outcomes);
        outcomes->clear();
    }
    EXPECT_EQ(outcomes->received(), std::vector<SetOutcome>{SetOutcome(4, 131)});
    EXPECT_EQ(sent->take().size(), 2u);  // 1, then 4: reset itself sends nothing
}

TEST(ClientSetManager, ReceiversMayCallBackIntoTheManager) {
    auto sent = std::make_shared<SentMessages>();
    auto manager = std::make_shared<ClientSetManager>(sent);
    // Answers the first outcome by setting channel 9, the second by resetting.
    struct CallBack : Receiver<SetOutcome> {
        void receive(const SetOutcome& outcome) override {
            seen.push_back(outcome);
            if (seen.size() == 1) {
                manager->setChannel(9, {0x09}, nullptr);
            } else {
                manager->reset();
            }
        }
        ClientSetManager* manager = nullptr;
        std::vector<SetOutcome> seen;
    };
    auto callBack = std::make_shared<CallBack>();
    callBack->manager = manager.get();
    manager->setChannel(1, {0x01}, callBack);
    manager->setChannel(2, {0x02}, callBack);
    manager->receive(SetOutcome(1, 255));  // reported, then 9 is queued behind 2
    manager->receive(SetOutcome(2, 255));  // reported once; the reset discards 9
    EXPECT_EQ(callBack->seen, (std::vector<SetOutcome>{SetOutcome(1, 255), SetOutcome(2, 255)}));
    EXPECT_EQ(sent->take(), (Strings{"02 01 00 00 00 01 00 01", "02 02 00 00 00 01 00 02"}));
    EXPECT_EQ(manager->outstanding(), 0u);
}

TEST(SetOutcomeTransform, TurnsSetResponsesAndSetErrorsIntoOutcomes) {
    auto outcomes = std::make_shared<Outcomes>();
    SetOutcomeTransform transform(outcomes);
    transform.receive(*SetResponse::newInstance(7));
    transform.receive(*ErrorResponse::newInstance(0, 5, 7));  // about a get: not ours
    transform.receive(*ErrorResponse::newInstance(2, 5, 0x102));
    EXPECT_EQ(outcomes->received(),
              (std::vector<SetOutcome>{SetOutcome(7, 255), SetOutcome(0x102, 5)}));
}

TEST(ClientSetManager, CancellingWithdrawsQueuedSetsAndMutesTheOneInFlight) {
    auto sent = std::make_shared<SentMessages>();
    ClientSetManager manager(sent);
    auto inFlight = std::make_shared<Outcomes>();
    auto queued = std::make_shared<Outcomes>();
    auto other = std::make_shared<Outcomes>();
    manager.setChannel(3, {0x01}, inFlight);
    manager.setChannel(3, {0x02}, queued);
    manager.setChannel(4, {0x03}, other);
    manager.cancelSet(queued);
    manager.cancelSet(inFlight);
    manager.cancelSet(nullptr);
    EXPECT_EQ(manager.outstanding(), 2u);  // the one in flight still waits for its answer
    EXPECT_EQ(sent->take().size(), 1u);

    // The late answer completes the cancelled set, not a later one.
    manager.receive(SetOutcome(3, 255));
    EXPECT_TRUE(inFlight->received().empty());
    EXPECT_EQ(sent->take().size(), 1u);  // channel 4 leaves; the withdrawn set never does
    manager.receive(SetOutcome(4, 255));
    EXPECT_EQ(other->received(), std::vector<SetOutcome>{SetOutcome(4, 255)});
    EXPECT_TRUE(queued->received().empty());

    manager.setChannel(5, {0x04}, inFlight);
    manager.cancelSet(inFlight);
    manager.reset();  // a cancelled set is not reported, not even with 131
    EXPECT_TRUE(inFlight->received().empty());
    EXPECT_EQ(manager.outstanding(), 0u);
}
