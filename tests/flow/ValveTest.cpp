#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/flow/Valve.h"
#include "chanlink/messages/Message.h"
#include "support/RecordingReceiver.h"

using testing_support::RecordingReceiver;

using Items = std::vector<std::string>;

TEST(Valve, HoldsWhileClosedAndReleasesInOrderOnOpen) {
    auto sink = std::make_shared<RecordingReceiver<std::string>>();
    Valve<std::string> valve(sink, false);
    valve.receive("A");
    valve.receive("B");
    EXPECT_EQ(sink->count(), 0u);
    valve.open();
    EXPECT_TRUE(valve.isOpen());
    valve.receive("C");
    EXPECT_EQ(sink->received(), (Items{"A", "B", "C"}));

    valve.close();
    valve.receive("D");
    valve.receive("E");
    EXPECT_EQ(sink->count(), 3u);
    valve.open();
    valve.open();
    EXPECT_EQ(sink->received(), (Items{"A", "B", "C", "D", "E"}));
}

TEST(Valve, ReleasesItemsSentDuringItsOwnReleaseBehindTheHeldOnes) {
    Items seen;
    std::shared_ptr<Valve<std::string>> valve;
    auto downstream = makeReceiver<std::string>([&](const std::string& item) {
        seen.push_back(item);
        if (item == "A") {
            valve->receive("X");
            EXPECT_FALSE(valve->isOpen());
        }
    });
    valve = std::make_shared<Valve<std::string>>(downstream, false);
    valve->receive("A");
    valve->receive("B");
    valve->open();
    EXPECT_EQ(seen, (Items{"A", "B", "X"}));
    EXPECT_TRUE(valve->isOpen());
}

TEST(Valve, AThrowingReceiverLeavesTheRestHeldAndTheValveClosed) {
    Items seen;
    auto downstream = makeReceiver<std::string>([&](const std::string& item) {
        seen.push_back(item);
        if (item == "B") {
            throw std::runtime_error("downstream failed");
        }
    });
    Valve<std::string> valve(downstream, false);
    for (const char* item : {"A", "B", "C"}) {
        valve.receive(item);
    }
    EXPECT_THROW(valve.open(), std::runtime_error);
    EXPECT_FALSE(valve.isOpen());
    valve.open();
    EXPECT_EQ(seen, (Items{"A", "B", "C"}));
}

TEST(Valve, AHeldSharedPointerKeepsItsMessageAlive) {
    auto sink = std::make_shared<RecordingReceiver<std::shared_ptr<const Message>>>();
    Valve<std::shared_ptr<const Message>> valve(sink, false);
    auto message = std::make_shared<const Message>(OpCode{2});
    std::weak_ptr<const Message> watch = message;
    valve.receive(message);
    message.reset();
    EXPECT_FALSE(watch.expired());
    valve.open();
    ASSERT_EQ(sink->count(), 1u);
    EXPECT_EQ(sink->received()[0], watch.lock());
    sink->clear();
    EXPECT_TRUE(watch.expired());

    Valve<std::shared_ptr<const Message>> unconnected(nullptr, true);
    unconnected.receive(std::make_shared<const Message>(OpCode{0}));  // dropped, no crash
}
