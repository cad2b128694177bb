#include "support/ProductionChains.h"

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UserAccountRequest.h"

namespace testing_support {

std::shared_ptr<MessageProductionChain> clientProductionChain() {
    auto chain = std::make_shared<MessageProductionChain>();
    chain->addProducer(LoginResponse::Code, LoginResponse::read);
    chain->addProducer(GetResponse::Code, GetResponse::read);
    chain->addProducer(SetResponse::Code, SetResponse::read);
    chain->addProducer(SubscriptionResponse::Code, SubscriptionResponse::read);
    chain->addProducer(ErrorResponse::Code, ErrorResponse::read);
    return chain;
}

std::shared_ptr<MessageProductionChain> completeProductionChain() {
    auto chain = clientProductionChain();
    chain->addProducer(GetRequest::Code, GetRequest::read);
    chain->addProducer(SetRequest::Code, SetRequest::read);
    chain->addProducer(SubscriptionRequest::Code, SubscriptionRequest::read);
    chain->addProducer(LogPushRequest::Code, LogPushRequest::read);
    chain->addProducer(9, UserAccountRequest::read);
    return chain;
}

}  // namespace testing_support
