#pragma once

#include <list>
#include <map>
#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"

// Keeps the application's subscriptions: the device is asked for a channel
// when its first receiver comes and told to stop when its last one goes, and
// every subscribed channel is asked for again after each successful login,
// since a new login starts with nothing subscribed on the device's side.
// Incoming outcomes are handed to the receivers of their channel.
//
// Subscription and unsubscription requests are alike on the wire, so a
// device cannot tell them apart; what matters to the application is that
// after the last removeSubscription nothing more is delivered for the channel.
class ClientSubscriptionManager : public Receiver<GetOutcome>, public Receiver<LoginOutcome> {
public:
    // outgoing: where requests go (in a built session, the login valve).
    explicit ClientSubscriptionManager(
        std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing);
    ~ClientSubscriptionManager() override;

    ClientSubscriptionManager(const ClientSubscriptionManager&) = delete;
    ClientSubscriptionManager& operator=(const ClientSubscriptionManager&) = delete;

    // Adds receiver to the channel; the first receiver of a channel sends a
    // subscription request for it. An empty receiver does nothing.
    void addSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Removes receiver from the channel; removing the last one sends an
    // unsubscription request and forgets the channel. Unknown channels and
    // receivers do nothing.
    void removeSubscription(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // The subscribed channels, ascending.
    std::list<unsigned int> getSubscriptionList() const;

    // Hands the outcome to the receivers of its channel, if any.
    void receive(const GetOutcome& outcome) override;
    // After a successful login, one subscription request per channel,
    // ascending. Other states change nothing: subscriptions are kept.
    void receive(const LoginOutcome& outcome) override;

private:
    void send(const std::shared_ptr<const Message>& request);

    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing;
    std::map<unsigned int, Dispatcher<GetOutcome>> subscriptions;
};
