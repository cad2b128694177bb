#include "chanlink/client/ClientSubscriptionManager.h"

#include "chanlink/client/ChannelReceiverTable.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/UnsubscriptionRequest.h"

using Table = ChannelReceiverTable<GetOutcome>;

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
    Table::add(subscriptions, channelId, std::move(receiver),
               [&] { send(SubscriptionRequest::newInstance({channelId})); });
}

void ClientSubscriptionManager::removeSubscription(unsigned int channelId,
                                                   std::shared_ptr<Receiver<GetOutcome>> receiver) {
    Table::remove(subscriptions, channelId, std::move(receiver),
                  [&] { send(UnsubscriptionRequest::newInstance({channelId})); });
}

std::list<unsigned int> ClientSubscriptionManager::getSubscriptionList() const {
    return Table::channels(subscriptions);
}

void ClientSubscriptionManager::receive(const GetOutcome& outcome) {
    Table::deliver(subscriptions, outcome.getChannelId(), outcome);
}

void ClientSubscriptionManager::receive(const LoginOutcome& outcome) {
    if (!outcome.loggedIn()) {
        return;
    }
    for (unsigned int channelId : getSubscriptionList()) {
        send(SubscriptionRequest::newInstance({channelId}));
    }
}
