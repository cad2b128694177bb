#include "chanlink/client/ClientSetManager.h"

#include <utility>

#include "chanlink/messages/SetRequest.h"

ClientSetManager::ClientSetManager(
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing)
    : outgoing(std::move(outgoing)) {}

ClientSetManager::~ClientSetManager() {
    reset();
}

void ClientSetManager::setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                                  std::shared_ptr<Receiver<SetOutcome>> receiver) {
    queued.emplace_back(channelId, data, std::move(receiver));
    send();
}

void ClientSetManager::send() {
    if (!pending.empty() || queued.empty()) {
        return;
    }
    const std::shared_ptr<const Message> request =
        SetRequest::newInstance(queued.front().channelId, queued.front().data);
    // The operation leaves the queue before anyone is called, so a receiver
    // calling back into the manager never sees it twice. The next queued
    // operation is not tried here; it waits for the next call.
    QueuedSetOperation operation = std::move(queued.front());
    queued.pop_front();
    if (!request) {
        reportOutcome(operation, SetOutcome(operation.channelId, SetOutcome::RequestNotBuilt));
        return;
    }
    pending.push_back(std::move(operation));
    if (outgoing) {
        outgoing->receive(request);
    }
}

void ClientSetManager::receive(const SetOutcome& outcome) {
    if (!pending.empty() && pending.front().channelId == outcome.getChannelId()) {
        // Out of flight before its receiver is called, so that a receiver
        // calling reset() cannot have it reported a second time.
        QueuedSetOperation operation = std::move(pending.front());
        pending.pop_front();
        reportOutcome(operation, outcome);
    }
    send();
}

void ClientSetManager::reset() {
    // Taken out first, so that a receiver setting a channel from its report
    // starts afresh instead of being discarded in turn.
    std::deque<QueuedSetOperation> discarded = std::exchange(pending, {});
    for (QueuedSetOperation& operation : queued) {
        discarded.push_back(std::move(operation));
    }
    queued.clear();
    for (QueuedSetOperation& operation : discarded) {
        reportOutcome(operation, SetOutcome(operation.channelId, SetOutcome::Discarded));
    }
}

void ClientSetManager::cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver) {
    if (!receiver) {
        return;
    }
    for (QueuedSetOperation& operation : pending) {
        if (operation.receiver == receiver) {
            operation.receiver.reset();
        }
    }
    // Withdrawn operations are released only after the queue is consistent,
    // in case releasing a receiver calls back into this manager.
    std::deque<QueuedSetOperation> withdrawn;
    std::deque<QueuedSetOperation> kept;
    for (QueuedSetOperation& operation : queued) {
        (operation.receiver == receiver ? withdrawn : kept).push_back(std::move(operation));
    }
    queued.swap(kept);
}

void ClientSetManager::reportOutcome(QueuedSetOperation& operation, const SetOutcome& outcome) {
    if (operation.receiver) {
        operation.receiver->receive(outcome);
    }
}
