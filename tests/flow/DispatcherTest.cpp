#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "support/RecordingReceiver.h"

using testing_support::RecordingReceiver;

namespace {

using Log = std::vector<std::string>;

std::shared_ptr<Receiver<int>> logging(Log& log, const std::string& name) {
    return makeReceiver<int>(
        [&log, name](int item) { log.push_back(name + std::to_string(item)); });
}

}  // namespace

TEST(Dispatcher, RefusesEmptyAndDuplicateReceiversSilently) {
    Dispatcher<int> dispatcher;
    dispatcher.addReceiver(nullptr);
    EXPECT_FALSE(dispatcher.hasReceivers());
    EXPECT_FALSE(dispatcher.hasReceiver(nullptr));

    auto a = std::make_shared<RecordingReceiver<int>>();
    dispatcher.addReceiver(a);
    dispatcher.addReceiver(a);
    dispatcher.removeReceiver(std::make_shared<RecordingReceiver<int>>());
    dispatcher.receive(7);
    EXPECT_EQ(a->received(), std::vector<int>{7});
    EXPECT_TRUE(dispatcher.hasReceiver(a));

    dispatcher.removeReceiver(a);
    EXPECT_FALSE(dispatcher.hasReceivers());
}

TEST(Dispatcher, DeliversInRegistrationOrderAndCopiesHaveTheirOwnList) {
    Log log;
    auto a = logging(log, "A");
    auto b = logging(log, "B");
    Dispatcher<int> dispatcher;
    dispatcher.addReceiver(a);
    dispatcher.addReceiver(b);
    dispatcher.receive(1);
    dispatcher.removeReceiver(a);
    dispatcher.addReceiver(a);
    dispatcher.receive(2);
    EXPECT_EQ(log, (Log{"A1", "B1", "B2", "A2"}));

    log.clear();
    Dispatcher<int> copy = dispatcher;
    copy.removeReceiver(b);
    dispatcher.receive(3);
    copy.receive(4);
    EXPECT_EQ(log, (Log{"B3", "A3", "A4"}));
}

TEST(Dispatcher, ChangesDuringDeliveryAffectOnlyLaterItems) {
    Log log;
    auto dispatcher = std::make_shared<Dispatcher<int>>();
    auto late = logging(log, "L");
    auto added = logging(log, "N");
    // The dispatcher holds the only reference to the one-shot receiver.
    std::weak_ptr<Receiver<int>> self;
    auto oneShot = makeReceiver<int>([&](int item) {
        dispatcher->removeReceiver(self.lock());
        dispatcher->removeReceiver(late);
        dispatcher->addReceiver(added);
        // The delivery's snapshot keeps this receiver, and the lambda, alive.
        log.push_back((self.expired() ? "dead S" : "S") + std::to_string(item));
    });
    self = oneShot;
    dispatcher->addReceiver(std::move(oneShot));
    dispatcher->addReceiver(late);

    dispatcher->receive(1);
    EXPECT_TRUE(self.expired());
    dispatcher->receive(2);
    EXPECT_EQ(log, (Log{"S1", "L1", "N2"}));
}

TEST(Dispatcher, SurvivesBeingDestroyedByItsOwnReceiver) {
    Log log;
    auto dispatcher = std::make_shared<Dispatcher<int>>();
    dispatcher->addReceiver(makeReceiver<int>([&dispatcher](int) { dispatcher.reset(); }));
    auto b = logging(log, "B");
    dispatcher->addReceiver(b);
    dispatcher->receive(5);
    EXPECT_EQ(dispatcher, nullptr);
    EXPECT_EQ(log, Log{"B5"});
    EXPECT_EQ(b.use_count(), 1);
}

TEST(Dispatcher, ExceptionFromAReceiverPassesOutAndSkipsTheRest) {
    auto dispatcher = std::make_shared<Dispatcher<int>>();
    auto thrower = makeReceiver<int>([](int item) {
        if (item == 1) {
            throw std::runtime_error("receiver failed");
        }
    });
    auto after = std::make_shared<RecordingReceiver<int>>();
    dispatcher->addReceiver(thrower);
    dispatcher->addReceiver(after);
    EXPECT_THROW(dispatcher->receive(1), std::runtime_error);
    EXPECT_EQ(after->count(), 0u);
    // The snapshot is gone: only the test and the dispatcher hold each receiver.
    EXPECT_EQ(after.use_count(), 2);
    dispatcher->receive(2);
    EXPECT_EQ(after->received(), std::vector<int>{2});
}

TEST(Dispatcher, AddRemoveAndHasLookUpThroughFindReceiver) {
    // Treats any receiver as the first registered one: at most one receiver.
    struct SingleDispatcher : Dispatcher<int> {
        ReceiverList::iterator findReceiver(ReceiverPtr) override { return receiverList().begin(); }
    };
    SingleDispatcher dispatcher;
    auto a = std::make_shared<RecordingReceiver<int>>();
    auto b = std::make_shared<RecordingReceiver<int>>();
    dispatcher.addReceiver(a);
    dispatcher.addReceiver(b);
    EXPECT_TRUE(dispatcher.hasReceiver(b));
    dispatcher.receive(1);
    EXPECT_EQ(a->count(), 1u);
    EXPECT_EQ(b->count(), 0u);
    dispatcher.removeReceiver(b);
    EXPECT_FALSE(dispatcher.hasReceivers());
}

TEST(FunctionReceiver, CallsTheFunctionAndIgnoresAnEmptyOne) {
    int sum = 0;
    auto adder = makeReceiver<int>([&sum](const int& item) { return sum += item; });
    adder->receive(2);
    adder->receive(3);
    EXPECT_EQ(sum, 5);
    FunctionReceiver<int> empty(nullptr);
    empty.receive(1);
}
