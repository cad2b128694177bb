#pragma once

#include <cstddef>
#include <map>
#include <memory>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/messages/Message.h"

// Sends get requests, one channel each, and remembers who waits for which
// channel. A waiting receiver is answered once, by the first outcome for its
// channel from any source (a get response, an error, or subscription
// traffic). Pending channels are kept through failed logins and asked for
// again after every successful one.
class ClientGetManager : public Receiver<GetOutcome>, public Receiver<LoginOutcome> {
public:
    // messageReceiver: where requests go (in a built session, the login valve).
    explicit ClientGetManager(
        std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver);
    ~ClientGetManager() override;

    ClientGetManager(const ClientGetManager&) = delete;
    ClientGetManager& operator=(const ClientGetManager&) = delete;

    // Sends a request for this one channel (also when one is already
    // pending: requests are never batched) and adds receiver to the
    // channel's waiting receivers; an empty receiver or one already waiting
    // is not added again.
    void requestChannel(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Ends the channel's wait and hands the outcome to each receiver that
    // waited, in the order they asked. The wait ends before delivery, so a
    // receiver that asks again starts a new wait.
    void receive(const GetOutcome& outcome) override;
    // On Success, asks again for every pending channel, ascending; otherwise
    // nothing.
    void receive(const LoginOutcome& outcome) override;

    // Stops receiver waiting for the channel: it gets no outcome for the
    // request it made. When it was the channel's last waiting receiver the
    // channel is forgotten altogether, so it is not asked for again on the
    // next login and a late answer reaches nobody. A request already sent
    // stays sent. Does nothing when receiver does not wait for the channel.
    void cancelRequest(unsigned int channelId, std::shared_ptr<Receiver<GetOutcome>> receiver);
    // Number of channels that receivers wait for.
    std::size_t pendingChannelCount() const { return pendingRequests.size(); }

private:
    void sendRequest(unsigned int channelId);

    std::shared_ptr<Receiver<std::shared_ptr<const Message>>> messageReceiver;
    std::map<unsigned int, Dispatcher<GetOutcome>> pendingRequests;
};
