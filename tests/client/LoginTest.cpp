#include <gtest/gtest.h>

#include "chanlink/client/ClientLoginManager.h"
#include "chanlink/client/LoginValveController.h"
#include "chanlink/messages/LoginRequest.h"
#include "support/Bytes.h"
#include "support/RecordingReceiver.h"

using testing_support::bytes;
using testing_support::RecordingReceiver;

namespace {

using Requests = RecordingReceiver<std::shared_ptr<const Message>>;
using States = std::vector<LoginOutcome::StatePossibilities>;

States statesOf(const RecordingReceiver<LoginOutcome>& recorder) {
    States states;
    for (const LoginOutcome& outcome : recorder.received()) {
        states.push_back(outcome.getState());
    }
    return states;
}

const LoginResponse& response(const std::shared_ptr<const Message>& message) {
    return dynamic_cast<const LoginResponse&>(*message);
}

}  // namespace

TEST(LoginOutcome, PredicatesOverlapOnlyForTooManyConnections) {
    const LoginOutcome tooMany(LoginOutcome::TooManyConnections);
    EXPECT_TRUE(tooMany.loginFailed());
    EXPECT_TRUE(tooMany.tooManyConnections());
    EXPECT_FALSE(tooMany.loggedIn());
    EXPECT_TRUE(LoginOutcome(LoginOutcome::Failure).loginFailed());
    EXPECT_FALSE(LoginOutcome(LoginOutcome::Pending).loginFailed());
    EXPECT_TRUE(LoginOutcome(LoginOutcome::Pending).loginPending());
    EXPECT_EQ(LoginOutcome(response(LoginResponse::newInstance(LoginResponse::Success))).getState(),
              LoginOutcome::Success);
    EXPECT_STREQ(LoginOutcome::name(LoginOutcome::NotAttempted), "NotAttempted");
}

TEST(ClientLoginManager, SendsTheRequestBeforeEnteringPending) {
    auto outcomes = std::make_shared<RecordingReceiver<LoginOutcome>>();
    // Records the manager's state at the moment the request arrives.
    struct StateAtSend : Receiver<std::shared_ptr<const Message>> {
        void receive(const std::shared_ptr<const Message>& message) override {
            payloads.push_back(message->write());
            states.push_back(manager->getState().getState());
        }
        ClientLoginManager* manager = nullptr;
        std::vector<std::vector<unsigned char>> payloads;
        States states;
    };
    auto requests = std::make_shared<StateAtSend>();
    ClientLoginManager manager(requests, "ab", "xyz", outcomes);
    requests->manager = &manager;
    EXPECT_TRUE(manager.getState().loginNotAttempted());
    EXPECT_FALSE(manager.getState().loginFailed());

    EXPECT_TRUE(manager.initiateLogin());
    EXPECT_EQ(requests->payloads,
              std::vector<std::vector<unsigned char>>{bytes("09 09 07 02 03 61 62 78 79 7A")});
    EXPECT_EQ(requests->states, States{LoginOutcome::NotAttempted});
    EXPECT_EQ(statesOf(*outcomes), States{LoginOutcome::Pending});
}

TEST(ClientLoginManager, CredentialsTooLongToCarryFailWithoutSending) {
    auto requests = std::make_shared<Requests>();
    auto outcomes = std::make_shared<RecordingReceiver<LoginOutcome>>();
    ClientLoginManager longest(requests, std::string(255, 'u'), std::string(255, 'p'), outcomes);
    EXPECT_TRUE(longest.initiateLogin());
    EXPECT_EQ(requests->count(), 1u);

    ClientLoginManager tooLong(requests, std::string(256, 'u'), "", outcomes);
    EXPECT_FALSE(tooLong.initiateLogin());
    EXPECT_EQ(requests->count(), 1u);
    EXPECT_EQ(tooLong.getState().getState(), LoginOutcome::Failure);
    EXPECT_EQ(statesOf(*outcomes), (States{LoginOutcome::Pending, LoginOutcome::Failure}));
}

TEST(ClientLoginManager, EveryResponseMovesTheStateAndIsReportedEvenWhenRepeated) {
    auto outcomes = std::make_shared<RecordingReceiver<LoginOutcome>>();
    ClientLoginManager manager(nullptr, "u", "p", outcomes);
    manager.receive(response(LoginResponse::newInstance(LoginResponse::TooManyConnections)));
    manager.receive(response(LoginResponse::newInstance(LoginResponse::Success)));
    manager.receive(response(LoginResponse::newInstance(LoginResponse::Success)));
    manager.receive(response(LoginResponse::newInstance(LoginResponse::Failure)));
    EXPECT_EQ(statesOf(*outcomes), (States{LoginOutcome::TooManyConnections, LoginOutcome::Success,
                                           LoginOutcome::Success, LoginOutcome::Failure}));
    EXPECT_TRUE(manager.initiateLogin());  // no message receiver: still Pending, no crash
    EXPECT_TRUE(manager.getState().loginPending());
}

TEST(LoginValveController, OpensOnSuccessOnlyAndNeverDropsHeldRequests) {
    auto queue = std::make_shared<RecordingReceiver<int>>();
    // A valve of messages in front of a recorder of their first payload byte.
    struct FirstByte : Receiver<std::shared_ptr<const Message>> {
        explicit FirstByte(std::shared_ptr<RecordingReceiver<int>> to) : to(std::move(to)) {}
        void receive(const std::shared_ptr<const Message>& m) override {
            to->receive(m->getPayload().at(1));
        }
        std::shared_ptr<RecordingReceiver<int>> to;
    };
    auto valve = std::make_shared<Valve<std::shared_ptr<const Message>>>(
        std::make_shared<FirstByte>(queue), false);
    LoginValveController controller(valve);
    auto send = [&](unsigned char n) {
        valve->receive(Message::createShared(new Message(std::vector<unsigned char>{0x00, n})));
    };
    send(1);
    send(2);
    send(3);
    controller.receive(LoginOutcome(LoginOutcome::Pending));
    EXPECT_EQ(queue->count(), 0u);
    controller.receive(LoginOutcome(LoginOutcome::Success));
    send(4);
    EXPECT_EQ(queue->received(), (std::vector<int>{1, 2, 3, 4}));
    controller.receive(LoginOutcome(LoginOutcome::Failure));
    send(5);
    EXPECT_EQ(queue->count(), 4u);
    controller.receive(LoginOutcome(LoginOutcome::Success));
    EXPECT_EQ(queue->received().back(), 5);
}
