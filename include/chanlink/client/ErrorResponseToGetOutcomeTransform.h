#pragma once

#include <list>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/ErrorResponse.h"

// A failed outcome, carrying the server's reason code, for an error response
// to a get request; errors about other requests give nothing.
class ErrorResponseToGetOutcomeTransform : public Transform<ErrorResponse, GetOutcome> {
public:
    using Transform<ErrorResponse, GetOutcome>::Transform;

    std::list<GetOutcome> transform(const ErrorResponse& error) override;
};
