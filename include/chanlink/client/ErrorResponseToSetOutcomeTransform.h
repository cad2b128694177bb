#pragma once

#include <list>
#include <memory>

#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/ErrorResponse.h"

// A failed outcome, with the server's reason code, for an error response to
// a set request; errors about other requests never reach the set manager.
class ErrorResponseToSetOutcomeTransform : public Transform<ErrorResponse, SetOutcome> {
public:
    explicit ErrorResponseToSetOutcomeTransform(std::shared_ptr<Receiver<SetOutcome>> receiver);
    ~ErrorResponseToSetOutcomeTransform() override;

    std::list<SetOutcome> transform(const ErrorResponse& error) override;
};
