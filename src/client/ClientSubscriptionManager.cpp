#include "chanlink/client/ClientSubscriptionManager.h"

#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/UnsubscriptionRequest.h"

ClientSubscriptionManager::ClientSubscriptionManager(
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing)
    : outgoing(std::move(outgoing)) {}

ClientSubscriptionManager::~ClientSubscriptionManager() = default;

void ClientSubscriptionManager::send(const std::shared_ptr<const Message>& request) {
    if (request && outgoing) {
        outgoing->receive(request);
    }
}

void ClientSubscriptionManager::addSubscription(unsigned int channelId,
                                                std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (!receiver) {
        return;
    }
    if (subscriptions.find(channelId) == subscriptions.end()) {
        // Sent before the entry exists.
        send(SubscriptionRequest::newInstance({channelId}));
    }
    subscriptions[channelId].addReceiver(std::move(receiver));
}

void ClientSubscriptionManager::removeSubscription(unsigned int channelId,
                                                   std::shared_ptr<Receiver<GetOutcome>> receiver) {
    const auto found = subscriptions.find(channelId);
    if (found == subscriptions.end()) {
        return;
    }
    found->second.removeReceiver(std::move(receiver));
    if (!found->second.hasReceivers()) {
        send(UnsubscriptionRequest::newInstance({channelId}));
        subscriptions.erase(channelId);  // by key: sending may have changed the map
    }
}

std::list<unsigned int> ClientSubscriptionManager::getSubscriptionList() const {
    std::list<unsigned int> channels;
    for (const auto& entry : subscriptions) {
        channels.push_back(entry.first);
    }
    return channels;
}

void ClientSubscriptionManager::receive(const GetOutcome& outcome) {
    const auto found = subscriptions.find(outcome.getChannelId());
    if (found != subscriptions.end()) {
        found->second.receive(outcome);
    }
}

void ClientSubscriptionManager::receive(const LoginOutcome& outcome) {
    if (!outcome.loggedIn()) {
        return;
    }
    for (unsigned int channelId : getSubscriptionList()) {
        send(SubscriptionRequest::newInstance({channelId}));
    }
}
