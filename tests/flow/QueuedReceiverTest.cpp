#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/Message.h"

TEST(QueuedReceiver, DequeuesFirstInFirstOutAndThrowsWhenEmpty) {
    QueuedReceiver<std::string> queue;
    for (const char* item : {"A", "B", "C"}) {
        queue.receive(item);
    }
    EXPECT_EQ(queue.size(), 3u);
    EXPECT_EQ(queue.dequeue(), "A");
    EXPECT_EQ(queue.dequeue(), "B");
    EXPECT_EQ(queue.dequeue(), "C");
    EXPECT_TRUE(queue.empty());
    try {
        queue.dequeue();
        FAIL() << "dequeue on an empty queue returned";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "Queue is empty");
    }

    queue.reset();
    queue.receive("D");
    queue.receive("E");
    queue.reset();
    EXPECT_TRUE(queue.empty());
}

TEST(QueuedReceiver, AQueuedSharedPointerKeepsItsMessageAlive) {
    QueuedReceiver<std::shared_ptr<const Message>> queue;
    auto message = std::make_shared<const Message>(OpCode{11});
    const Message* const address = message.get();
    std::weak_ptr<const Message> watch = message;
    queue.receive(message);
    message.reset();
    EXPECT_FALSE(watch.expired());

    auto out = queue.dequeue();
    EXPECT_EQ(out.get(), address);  // shared, not copied
    EXPECT_EQ(out.use_count(), 1);
    out.reset();
    EXPECT_TRUE(watch.expired());
}
