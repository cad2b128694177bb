#include "chanlink/server/DeviceConnection.h"

#include <algorithm>
#include <utility>

#include "chanlink/endpoint/IncomingEndPoint.h"
#include "chanlink/endpoint/OutgoingEndPoint.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/transport/TransportPoll.h"
#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/Encoder.h"

namespace {

// Where a login request's fields really are. LoginRequest's getters read one
// byte early, as deployed clients expect of them; a device has to read the
// fields where LoginRequest::newInstance puts them.
constexpr unsigned int UsernameLengthAt = 3;
constexpr unsigned int PasswordLengthAt = 4;
constexpr unsigned int UsernameAt = 5;

template <typename Request, typename Handler>
std::shared_ptr<Receiver<Message>> route(Handler handler) {
    return std::make_shared<TypedTransform<Message, Request>>(
        makeReceiver<Request>(std::move(handler)));
}

}  // namespace

DeviceConnection::DeviceConnection(unsigned int id, std::shared_ptr<Transport> transport,
                                   std::shared_ptr<ChannelStore> store,
                                   const DeviceSettings& settings, LoginCheck loginCheck,
                                   std::shared_ptr<Receiver<DeviceEvent>> events,
                                   std::shared_ptr<ClientClock> clock)
    : id(id),
      transport(std::move(transport)),
      store(std::move(store)),
      maxInputBytes(settings.maxInputBytes),
      maxBacklogBytes(settings.maxBacklogBytes),
      loginCheck(std::move(loginCheck)),
      events(std::move(events)),
      clock(clock ? std::move(clock) : ClientClock::system()),
      loginTimeout(settings.loginTimeout),
      loginDelay(settings.loginDelay),
      maxLoginDelay(settings.maxLoginDelay),
      maxFailedLogins(settings.maxFailedLogins),
      decoder(std::make_shared<Decoder>()),
      chain(MessageProductionChain::newDeviceInstance()),
      backlog(std::make_shared<MessageBacklog>()),
      requests(std::make_shared<Dispatcher<Message>>()) {
    requests->addReceiver(route<LoginRequest>([this](const LoginRequest& r) { onLogin(r); }));
    requests->addReceiver(route<GetRequest>([this](const GetRequest& r) { onGet(r); }));
    requests->addReceiver(route<SetRequest>([this](const SetRequest& r) { onSet(r); }));
    // Unsubscriptions arrive as subscriptions too: they share opcode 3.
    requests->addReceiver(
        route<SubscriptionRequest>([this](const SubscriptionRequest& r) { onSubscription(r); }));
    requests->addReceiver(route<LogPushRequest>([this](const LogPushRequest& r) { onLogPush(r); }));

    auto incoming = std::make_shared<IncomingEndPoint>(
        ReadChunkBytes, decoder, this->transport, chain,
        makeReceiver<Message>([this](const Message& request) { admit(request); }));
    outgoing = std::make_shared<OutgoingEndPoint>(WriteChunkBytes, this->transport,
                                                  std::make_shared<Encoder>(), backlog);
    session = std::make_unique<Session>(this->transport, incoming, outgoing);

    const ClientClock::TimePoint now = this->clock->now();
    loginAllowedAt = now;
    if (loginTimeout.count() > 0) {
        loginDeadline = now + loginTimeout;
    }
}

DeviceConnection::~DeviceConnection() = default;

void DeviceConnection::tick() {
    if (!isOpen()) {
        return;
    }
    if (holdUntil) {
        // Input stays unread until the held login is answered.
        transport->tick();
        outgoing->doWrite();
        return;
    }
    session->tick();
    if (decoder->bufferedBytes() > maxInputBytes) {
        drop("after " + std::to_string(decoder->bufferedBytes()) +
             " bytes without a complete frame (limit " + std::to_string(maxInputBytes) + ")");
    }
}

void DeviceConnection::flush() {
    // A bounded number of rounds, so one fast reader cannot hold up the
    // others; what is left goes in the next round.
    for (int round = 0; round < 64 && isOpen() && wantsToWrite(); ++round) {
        const std::size_t before = backlogBytes();
        outgoing->doWrite();
        if (backlogBytes() >= before) {
            break;  // the socket takes nothing now
        }
    }
    if (isOpen() && backlogBytes() > maxBacklogBytes) {
        drop("with " + std::to_string(backlogBytes()) + " bytes unread (limit " +
             std::to_string(maxBacklogBytes) + ")");
    }
}

void DeviceConnection::pushChange(unsigned int channelId,
                                  const std::shared_ptr<const Message>& response) {
    if (!loggedInNow || !isOpen() || (!logPush && !subscribedTo(channelId))) {
        return;
    }
    if (answeringSet) {
        heldPushes.push_back(response);
    } else {
        send(response);
    }
}

void DeviceConnection::close() {
    TransportPoll::close(*transport);
}

void DeviceConnection::checkTimers() {
    if (!isOpen()) {
        return;
    }
    const ClientClock::TimePoint now = clock->now();
    if (holdUntil && now >= *holdUntil) {
        release();
    }
    if (isOpen() && !loggedInNow && loginDeadline && now >= *loginDeadline) {
        drop("without a login within " + std::to_string(loginTimeout.count()) + " ms");
    }
}

std::optional<ClientClock::TimePoint> DeviceConnection::nextTimer() const {
    if (!isOpen()) {
        return std::nullopt;
    }
    std::optional<ClientClock::TimePoint> next = loggedInNow ? std::nullopt : loginDeadline;
    if (holdUntil && (!next || *holdUntil < *next)) {
        next = holdUntil;
    }
    return next;
}

bool DeviceConnection::isOpen() const {
    return dropReason.empty() && !TransportPoll::of(*transport).ended();
}

bool DeviceConnection::failed() const {
    return TransportPoll::of(*transport).state == ConnectionOutcome::ConnectionFailed;
}

pollfd DeviceConnection::getPollDescriptor() const {
    if (!isOpen()) {
        return pollfd{-1, 0, 0};
    }
    pollfd entry = TransportPoll::of(*transport).entry(wantsToWrite());
    if (holdUntil) {
        entry.events = static_cast<short>(entry.events & ~POLLIN);
    }
    return entry;
}

bool DeviceConnection::readyWithoutWaiting() const {
    const TransportPoll poll = TransportPoll::of(*transport);
    return isOpen() && !holdUntil && (!poll.hasSocket || poll.inputBuffered);
}

bool DeviceConnection::wantsToWrite() const {
    return !backlog->empty() || outgoing->pendingBytes() != 0;
}

std::size_t DeviceConnection::backlogBytes() const {
    return outgoing->pendingBytes() + backlog->payloadBytes();
}

void DeviceConnection::onLogin(const LoginRequest& request) {
    const ByteVectorReader reader(request.getPayload());
    const unsigned int usernameLength = reader.readUint8At(UsernameLengthAt);
    const std::string username = reader.readStringAt(UsernameAt, usernameLength);
    const std::string password =
        reader.readStringAt(UsernameAt + usernameLength, reader.readUint8At(PasswordLengthAt));

    // A new login ends the one before, whatever its answer: the client
    // renews its subscriptions and log push after every successful login.
    endLogin();
    const LoginResponse::Result result = loginCheck(username, password);
    loggedInNow = result == LoginResponse::Success;
    send(LoginResponse::newInstance(result));
    const ClientClock::TimePoint now = clock->now();
    if (loggedInNow) {
        failedLogins = 0;
        loginDeadline.reset();
        report(DeviceEvent::LoggedIn, username);
        return;
    }
    // The time without a login runs from the end of the last one; failed
    // logins on a connection never logged in do not extend it.
    if (!loginDeadline && loginTimeout.count() > 0) {
        loginDeadline = now + loginTimeout;
    }
    report(DeviceEvent::LoginRefused,
           std::string(result == LoginResponse::TooManyConnections ? "(too many connections)"
                                                                   : "(wrong credentials)") +
               " for " + username);
    if (result != LoginResponse::Failure) {
        return;
    }
    ++failedLogins;
    if (maxFailedLogins != 0 && failedLogins >= maxFailedLogins) {
        outgoing->doWrite();  // the refusal, if the socket takes it now
        drop("after " + std::to_string(failedLogins) + " failed logins");
        return;
    }
    // 100 ms, 200 ms, 400 ms, ... up to the cap: a guesser on one
    // connection gets a handful of tries a minute, the others wait for
    // nothing.
    std::chrono::milliseconds delay = loginDelay;
    for (unsigned int i = 1; i < failedLogins && delay < maxLoginDelay; ++i) {
        delay *= 2;
    }
    loginAllowedAt = now + std::min(delay, maxLoginDelay);
}

void DeviceConnection::onGet(const GetRequest& request) {
    const std::vector<unsigned int> ids = request.getChannelList();
    if (!loggedInNow) {
        for (unsigned int channelId : ids) {
            send(ErrorResponse::newInstance(GetRequest::Code, ReasonCode::NotLoggedIn, channelId));
        }
        return;
    }
    std::vector<std::shared_ptr<const ChannelValue>> values;
    std::vector<unsigned int> unknown;
    for (unsigned int channelId : ids) {
        std::optional<ChannelValue> value = store->getValue(channelId);
        if (value) {
            values.push_back(std::make_shared<const ChannelValue>(std::move(*value)));
        } else {
            unknown.push_back(channelId);
        }
    }
    // A get of no channels is answered too, with an empty response, so that
    // every get has an answer.
    if (!values.empty() || ids.empty()) {
        send(GetResponse::newInstance(values));
    }
    for (unsigned int channelId : unknown) {
        send(ErrorResponse::newInstance(GetRequest::Code, ReasonCode::UnknownChannel, channelId));
    }
}

void DeviceConnection::onSet(const SetRequest& request) {
    const unsigned int channelId = request.getChannelId();
    if (!loggedInNow) {
        send(ErrorResponse::newInstance(SetRequest::Code, ReasonCode::NotLoggedIn, channelId));
        return;
    }
    answeringSet = true;
    const unsigned char reason = store->setValue(channelId, request.getData());
    answeringSet = false;
    send(reason == ReasonCode::Success
             ? SetResponse::newInstance(channelId)
             : ErrorResponse::newInstance(SetRequest::Code, reason, channelId));
    for (const auto& push : std::exchange(heldPushes, {})) {
        send(push);
    }
}

void DeviceConnection::onSubscription(const SubscriptionRequest& request) {
    if (!loggedInNow) {
        send(ErrorResponse::newInstance(SubscriptionRequest::Code, ReasonCode::NotLoggedIn, 0));
        return;
    }
    const std::vector<unsigned int> ids = request.getChannelList();
    // Every id is acknowledged, but only channels the store knows are kept,
    // so the subscriptions of a connection never outnumber the channels.
    std::vector<std::shared_ptr<const ChannelValue>> values;
    std::set<unsigned int> seen;
    for (unsigned int channelId : ids) {
        if (!seen.insert(channelId).second) {
            continue;
        }
        std::optional<ChannelValue> value = store->getValue(channelId);
        if (value) {
            subscriptions.insert(channelId);
            values.push_back(std::make_shared<const ChannelValue>(std::move(*value)));
        }
    }
    send(SubscriptionResponse::newInstance(ids));
    if (!values.empty()) {
        send(GetResponse::newInstance(values));
    }
}

void DeviceConnection::onLogPush(const LogPushRequest& request) {
    if (!loggedInNow) {
        send(ErrorResponse::newInstance(LogPushRequest::Code, ReasonCode::NotLoggedIn, 0));
        return;
    }
    logPush = request.getValue();
}

void DeviceConnection::endLogin() {
    loggedInNow = false;
    logPush = false;
    subscriptions.clear();
}

void DeviceConnection::admit(const Message& request) {
    if (!holdUntil && dynamic_cast<const LoginRequest*>(&request) != nullptr &&
        clock->now() < loginAllowedAt) {
        holdUntil = loginAllowedAt;
    }
    if (holdUntil) {
        heldRequests.push_back(request.getPayload());
        return;
    }
    requests->receive(request);
}

void DeviceConnection::release() {
    holdUntil.reset();
    for (const auto& payload : std::exchange(heldRequests, {})) {
        if (holdUntil || !isOpen()) {
            heldRequests.push_back(payload);  // a later login waits again
            continue;
        }
        if (const std::shared_ptr<const Message> request =
                chain->produceMessageFromFrame(payload)) {
            admit(*request);
        }
    }
}

void DeviceConnection::send(const std::shared_ptr<const Message>& message) {
    if (message) {
        backlog->receive(message);
    }
}

void DeviceConnection::drop(std::string reason) {
    dropReason = std::move(reason);
    TransportPoll::close(*transport);
}

void DeviceConnection::report(DeviceEvent::Kind kind, std::string detail) {
    if (events) {
        events->receive(DeviceEvent(kind, id, std::move(detail)));
    }
}
