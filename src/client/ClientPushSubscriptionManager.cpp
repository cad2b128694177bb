#include "chanlink/client/ClientPushSubscriptionManager.h"

#include "chanlink/messages/LogPushRequest.h"

ClientPushSubscriptionManager::ClientPushSubscriptionManager(
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing)
    : outgoing(std::move(outgoing)) {}

ClientPushSubscriptionManager::~ClientPushSubscriptionManager() = default;

void ClientPushSubscriptionManager::sendLogPush(bool on) {
    const std::shared_ptr<const Message> request = LogPushRequest::newInstance(on);
    if (request && outgoing) {
        outgoing->receive(request);
    }
}

void ClientPushSubscriptionManager::addSubscription(
    unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (!receiver) {
        return;
    }
    if (subscriptions.empty()) {
        sendLogPush(true);
    }
    subscriptions[channelId].addReceiver(std::move(receiver));
}

void ClientPushSubscriptionManager::removeSubscription(
    unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver) {
    const auto found = subscriptions.find(channelId);
    if (found == subscriptions.end()) {
        return;
    }
    found->second.removeReceiver(std::move(receiver));
    if (found->second.hasReceivers()) {
        return;
    }
    subscriptions.erase(found);
    if (subscriptions.empty()) {
        sendLogPush(false);
    }
}

std::list<unsigned int> ClientPushSubscriptionManager::getSubscriptionList() const {
    std::list<unsigned int> channels;
    for (const auto& entry : subscriptions) {
        channels.push_back(entry.first);
    }
    return channels;
}

void ClientPushSubscriptionManager::receive(const GetOutcome& outcome) {
    const auto found = subscriptions.find(outcome.getChannelId());
    if (found != subscriptions.end()) {
        found->second.receive(outcome);
    }
}

void ClientPushSubscriptionManager::receive(const LoginOutcome& outcome) {
    if (outcome.loggedIn() && !subscriptions.empty()) {
        sendLogPush(true);
    }
}
