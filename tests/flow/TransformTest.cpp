#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <vector>

#include "chanlink/flow/Transform.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/messages/Message.h"
#include "support/Bytes.h"
#include "support/RecordingReceiver.h"

using testing_support::bytes;
using testing_support::RecordingReceiver;

namespace {

// Turns n into n copies of n.
class Repeat : public Transform<int, int> {
public:
    using Transform<int, int>::Transform;
    std::list<int> transform(const int& item) override { return std::list<int>(item, item); }
};

class LocalResponse : public Message {
public:
    using Message::Message;
};

class DerivedResponse : public LocalResponse {
public:
    using LocalResponse::LocalResponse;
};

class OtherResponse : public Message {
public:
    using Message::Message;
};

}  // namespace

TEST(Transform, ForwardsEveryElementInListOrder) {
    auto sink = std::make_shared<RecordingReceiver<int>>();
    Repeat repeat(sink);
    repeat.receive(3);
    repeat.receive(0);
    repeat.receive(1);
    EXPECT_EQ(sink->received(), (std::vector<int>{3, 3, 3, 1}));

    Repeat unconnected(nullptr);
    unconnected.receive(2);  // dropped without notice
}

TEST(TypedTransform, SelectsByExactDynamicTypeNotByOpCode) {
    auto sink = std::make_shared<RecordingReceiver<LocalResponse>>();
    TypedTransform<Message, LocalResponse> select(sink);
    const auto payload = bytes("0B 01 02");
    const LocalResponse wanted(payload);
    const Message& asMessage = wanted;

    select.receive(asMessage);
    select.receive(Message(payload));
    select.receive(DerivedResponse(payload));
    select.receive(OtherResponse(payload));
    ASSERT_EQ(sink->count(), 1u);
    EXPECT_EQ(sink->received()[0].getPayload(), payload);
    EXPECT_EQ(select.transform(OtherResponse(payload)).size(), 0u);
}
