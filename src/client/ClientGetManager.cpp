#include "chanlink/client/ClientGetManager.h"

#include "chanlink/client/ChannelReceiverTable.h"
#include "chanlink/messages/GetRequest.h"

using Table = ChannelReceiverTable<GetOutcome>;

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
    Table::add(pendingRequests, channelId, std::move(receiver));
}

void ClientGetManager::receive(const GetOutcome& outcome) {
    Table::answer(pendingRequests, outcome.getChannelId(), outcome);
}

void ClientGetManager::receive(const LoginOutcome& outcome) {
    if (!outcome.loggedIn()) {
        return;  // pending requests are kept, never dropped
    }
    // The ids are taken first: sending may reach code that asks for more.
    for (unsigned int channelId : Table::channels(pendingRequests)) {
        sendRequest(channelId);
    }
}

void ClientGetManager::cancelRequest(unsigned int channelId,
                                     std::shared_ptr<Receiver<GetOutcome>> receiver) {
    Table::remove(pendingRequests, channelId, std::move(receiver));
}
