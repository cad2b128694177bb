#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "chanlink/client/QueuedSetOperation.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"

// Turns set calls into set requests, strictly one at a time: the next
// request leaves only when the one before has been answered. Every operation
// is reported exactly once, with a SetOutcome (see its reason codes); an
// operation whose answer never comes blocks the later ones until an answer
// for its channel or reset().
class ClientSetManager : public Receiver<SetOutcome> {
public:
    // outgoing: where requests go (in a built session, the login valve).
    explicit ClientSetManager(std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing);
    // Reports every outstanding operation with 131, as reset() does.
    ~ClientSetManager() override;

    ClientSetManager(const ClientSetManager&) = delete;
    ClientSetManager& operator=(const ClientSetManager&) = delete;

    // Queues the operation (the data is copied) and sends it at once if no
    // set is in flight. Data longer than 65535 bytes cannot be carried and is
    // reported with reason 1.
    void setChannel(unsigned int channelId, const std::vector<unsigned char>& data,
                    std::shared_ptr<Receiver<SetOutcome>> receiver);
    // An answer: completes the operation in flight if it is for the same
    // channel (anything else is ignored), then sends the next queued one.
    void receive(const SetOutcome& outcome) override;
    // Reports every operation with 131, the one in flight first, then the
    // queued ones in order, and forgets them; nothing is sent.
    void reset();

    // Operations not answered yet, the one in flight included.
    std::size_t outstanding() const { return pending.size() + queued.size(); }

    // Gives up on the operations that report to receiver (compared by
    // identity), without reporting them. Those still queued are withdrawn:
    // they are never sent. One already in flight cannot be called back; it
    // stays in flight, its outcome going nowhere, so that its answer when it
    // comes is not taken for a later set of the same channel. Until that
    // answer or reset() it still holds back the sets behind it. An empty
    // receiver matches nothing.
    void cancelSet(const std::shared_ptr<Receiver<SetOutcome>>& receiver);

protected:
    // Sends the front queued operation if no set is in flight.
    void send();
    void reportOutcome(QueuedSetOperation& operation, const SetOutcome& outcome);

private:
    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> outgoing;
    std::deque<QueuedSetOperation> queued;
    std::deque<QueuedSetOperation> pending;  // at most one entry
};
