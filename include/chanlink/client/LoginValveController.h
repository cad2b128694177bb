#pragma once

#include <memory>

#include "chanlink/client/LoginOutcome.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/flow/Valve.h"
#include "chanlink/messages/Message.h"

// Holds every request but the login back until the login succeeds: a Success
// outcome releases the held requests in order and opens the valve, any other
// outcome closes it again. Nothing held is ever dropped.
class LoginValveController : public Receiver<LoginOutcome> {
public:
    explicit LoginValveController(std::shared_ptr<Valve<std::shared_ptr<const Message>>> valve);
    ~LoginValveController() override;

    void receive(const LoginOutcome& outcome) override;

private:
    std::shared_ptr<Valve<std::shared_ptr<const Message>>> valve;
};
