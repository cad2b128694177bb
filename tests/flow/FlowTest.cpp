// The receiver chains every subsystem is built from: the order items arrive
// in, what changes during a delivery do, and what held items keep alive.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "chanlink/chanlink.h"
#include "support/RecordingReceiver.h"

using testing_support::RecordingReceiver;
using Log = std::vector<std::string>;

namespace {

// Logs name and item; throws on the item "throw" + name.
std::shared_ptr<Receiver<std::string>> logging(Log& log, const std::string& name) {
    return makeReceiver<std::string>([&log, name](const std::string& item) {
        if (item == "throw" + name) {
            throw std::runtime_error("receiver failed");
        }
        log.push_back(name + item);
    });
}

}  // namespace

TEST(Dispatcher, DeliversOnceToEachReceiverInRegistrationOrder) {
    Log log;
    auto a = logging(log, "A");
    auto b = logging(log, "B");
    Dispatcher<std::string> dispatcher;
    dispatcher.addReceiver(nullptr);
    EXPECT_FALSE(dispatcher.hasReceivers());
    dispatcher.addReceiver(a);
    dispatcher.addReceiver(b);
    dispatcher.addReceiver(a);  // already there
    dispatcher.removeReceiver(logging(log, "never added"));
    dispatcher.receive("1");
    dispatcher.removeReceiver(a);
    dispatcher.addReceiver(a);
    dispatcher.receive("2");
    EXPECT_THROW(dispatcher.receive("throwB"), std::runtime_error);  // stops this delivery only
    dispatcher.receive("3");
    EXPECT_EQ(log, (Log{"A1", "B1", "B2", "A2", "B3", "A3"}));
    EXPECT_TRUE(dispatcher.hasReceiver(b));
}

TEST(Dispatcher, ChangesDuringADeliveryApplyFromTheNextItem) {
    Log log;
    auto dispatcher = std::make_shared<Dispatcher<std::string>>();
    auto late = logging(log, "L");
    auto added = logging(log, "N");
    std::weak_ptr<Receiver<std::string>> self;
    auto oneShot = makeReceiver<std::string>([&](const std::string& item) {
        dispatcher->removeReceiver(self.lock());
        dispatcher->removeReceiver(late);
        dispatcher->addReceiver(added);
        // The delivery's snapshot keeps this receiver, and the lambda, alive.
        log.push_back((self.expired() ? "dead S" : "S") + item);
    });
    self = oneShot;
    dispatcher->addReceiver(std::move(oneShot));
    dispatcher->addReceiver(late);
    dispatcher->receive("1");
    EXPECT_TRUE(self.expired());
    dispatcher->receive("2");
    EXPECT_EQ(log, (Log{"S1", "L1", "N2"}));

    // Even the dispatcher's own destruction by a receiver.
    dispatcher->addReceiver(
        makeReceiver<std::string>([&](const std::string&) { dispatcher.reset(); }));
    dispatcher->receive("3");
    EXPECT_EQ(dispatcher, nullptr);
    EXPECT_EQ(log.back(), "N3");
    EXPECT_EQ(added.use_count(), 1);
}

TEST(Valve, HoldsWhileClosedAndReleasesInOrderOnOpen) {
    Log log;
    std::shared_ptr<Valve<std::string>> valve;
    auto downstream = logging(log, "");
    valve = std::make_shared<Valve<std::string>>(
        makeReceiver<std::string>([&](const std::string& item) {
            downstream->receive(item);
            if (item == "A") {
                valve->receive("X");  // sent during the release: behind the held ones
                EXPECT_FALSE(valve->isOpen());
            }
        }),
        false);
    valve->receive("A");
    valve->receive("B");
    EXPECT_TRUE(log.empty());
    valve->open();
    valve->receive("C");
    valve->close();
    valve->receive("throw");
    valve->receive("D");
    EXPECT_EQ(log, (Log{"A", "B", "X", "C"}));
    EXPECT_THROW(valve->open(), std::runtime_error);  // the rest stays held, the valve closed
    EXPECT_FALSE(valve->isOpen());
    valve->open();
    valve->open();
    EXPECT_TRUE(valve->isOpen());
    EXPECT_EQ(log, (Log{"A", "B", "X", "C", "D"}));
}

TEST(QueuedReceiver, HeldSharedPointersKeepTheirMessagesAliveUntilTakenOut) {
    QueuedReceiver<std::shared_ptr<const Message>> queue;
    auto sink = std::make_shared<RecordingReceiver<std::shared_ptr<const Message>>>();
    Valve<std::shared_ptr<const Message>> valve(sink, false);
    auto message = std::make_shared<const Message>(OpCode{11});
    std::weak_ptr<const Message> watch = message;
    queue.receive(message);
    valve.receive(message);
    message.reset();
    EXPECT_EQ(queue.dequeue(), watch.lock());  // shared, not copied
    EXPECT_FALSE(watch.expired());
    valve.open();
    sink->clear();
    EXPECT_TRUE(watch.expired());
    EXPECT_THROW(queue.dequeue(), std::logic_error);                        // empty
    Valve<std::shared_ptr<const Message>>(nullptr, true).receive(nullptr);  // dropped, no crash
}

// Transform's forwarding is the processing transforms'.
TEST(TypedTransform, PicksMessagesOfExactlyItsType) {
    auto accounts = std::make_shared<RecordingReceiver<UserAccountRequest>>();
    TypedTransform<Message, UserAccountRequest> select(accounts);
    const std::vector<unsigned char> payload{0x09, 0x09, 0x07, 0x00, 0x00};
    select.receive(UserAccountRequest(payload));
    select.receive(Message(payload));                    // the same opcode, another type
    select.receive(*LoginRequest::newInstance("", ""));  // a subclass
    ASSERT_EQ(accounts->count(), 1u);
    EXPECT_EQ(accounts->received()[0].getPayload(), payload);
}
