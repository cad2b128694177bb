#include "chanlink/client/ClientPushSubscriptionManager.h"

#include "chanlink/client/ChannelReceiverTable.h"
#include "chanlink/messages/LogPushRequest.h"

using Table = ChannelReceiverTable<GetOutcome>;

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
    Table::add(subscriptions, channelId, std::move(receiver));
}

void ClientPushSubscriptionManager::removeSubscription(
    unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver) {
    if (Table::remove(subscriptions, channelId, std::move(receiver)) && subscriptions.empty()) {
        sendLogPush(false);
    }
}

std::list<unsigned int> ClientPushSubscriptionManager::getSubscriptionList() const {
    return Table::channels(subscriptions);
}

void ClientPushSubscriptionManager::receive(const GetOutcome& outcome) {
    Table::deliver(subscriptions, outcome.getChannelId(), outcome);
}

void ClientPushSubscriptionManager::receive(const LoginOutcome& outcome) {
    if (outcome.loggedIn() && !subscriptions.empty()) {
        sendLogPush(true);
    }
}
