#include "chanlink/client/ClientGetManager.h"

#include <vector>

#include "chanlink/messages/GetRequest.h"

ClientGetManager::ClientGetManager(
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver)
    : messageReceiver(std::move(messageReceiver)) {}

ClientGetManager::~ClientGetManager() = default;

void ClientGetManager::sendRequest(unsigned int channelId) {
    const std::shared_ptr<const Message> request = GetRequest::newInstance({channelId});
    if (request && messageReceiver) {
        messageReceiver->receive(request);
    }
}

void ClientGetManager::requestChannel(unsigned int channelId,
                                      std::shared_ptr<Receiver<GetOutcome>> receiver) {
    sendRequest(channelId);
    pendingRequests[channelId].addReceiver(std::move(receiver));
}

void ClientGetManager::receive(const GetOutcome& outcome) {
    const auto found = pendingRequests.find(outcome.getChannelId());
    if (found == pendingRequests.end()) {
        return;
    }
    Dispatcher<GetOutcome> waiting = std::move(found->second);
    pendingRequests.erase(found);
    waiting.receive(outcome);
}

void ClientGetManager::receive(const LoginOutcome& outcome) {
    if (!outcome.loggedIn()) {
        return;  // pending requests are kept, never dropped
    }
    // The ids are taken first: sending may reach code that asks for more.
    std::vector<unsigned int> channels;
    channels.reserve(pendingRequests.size());
    for (const auto& entry : pendingRequests) {
        channels.push_back(entry.first);
    }
    for (unsigned int channelId : channels) {
        sendRequest(channelId);
    }
}

void ClientGetManager::cancelRequest(unsigned int channelId,
                                     std::shared_ptr<Receiver<GetOutcome>> receiver) {
    const auto found = pendingRequests.find(channelId);
    if (found == pendingRequests.end()) {
        return;
    }
    found->second.removeReceiver(std::move(receiver));
    if (!found->second.hasReceivers()) {
        pendingRequests.erase(found);
    }
}

bool ClientGetManager::isPending(unsigned int channelId) const {
    const auto found = pendingRequests.find(channelId);
    return found != pendingRequests.end() && found->second.hasReceivers();
}
