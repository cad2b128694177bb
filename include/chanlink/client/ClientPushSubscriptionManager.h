#pragma once

#include <list>
#include <map>
#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"

// Keeps receivers for channels whose values the device pushes on its own.
// No message names a channel: the device's log push is switched on while at
// least one receiver is registered and off when the last one goes, and
// switched on again after each successful login. Incoming outcomes are
// handed to the receivers of their channel.
class ClientPushSubscriptionManager : public Receiver<GetOutcome>, public Receiver<LoginOutcome> {
public:
    // outgoing: where requests go (in a built session, the login valve).
    explicit ClientPushSubscriptionManager(
        std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing);
    ~ClientPushSubscriptionManager() override;

    ClientPushSubscriptionManager(const ClientPushSubscriptionManager&) = delete;
    ClientPushSubscriptionManager& operator=(const ClientPushSubscriptionManager&) = delete;

    // Adds receiver to the channel; the first registration of all switches
    // the push on. An empty receiver does nothing.
    void addSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Removes receiver from the channel; when no channel is left the push is
    // switched off. Unknown channels and receivers do nothing.
    void removeSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // The channels with receivers, ascending.
    std::list<unsigned int> getSubscriptionList() const;

    // Hands the outcome to the receivers of its channel, if any.
    void receive(const GetOutcome& outcome) override;
    // After a successful login, switches the push on again if any channel
    // has receivers.
    void receive(const LoginOutcome& outcome) override;

private:
    void sendLogPush(bool on);

    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing;
    std::map<unsigned int, Dispatcher<GetOutcome>> subscriptions;
};
