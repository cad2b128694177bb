#pragma once

#include <list>

#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/ErrorResponse.h"

// A failed outcome, with the server's reason code, for an error response to
// a set request; errors about other requests never reach the set manager.
class ErrorResponseToSetOutcomeTransform : public Transform<ErrorResponse, SetOutcome> {
public:
    using Transform<ErrorResponse, SetOutcome>::Transform;

    std::list<SetOutcome> transform(const ErrorResponse& error) override;
};
