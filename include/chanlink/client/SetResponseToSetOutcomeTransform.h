#pragma once

#include <list>

#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/SetResponse.h"

// A successful outcome for the channel a set response names.
class SetResponseToSetOutcomeTransform : public Transform<SetResponse, SetOutcome> {
public:
    using Transform<SetResponse, SetOutcome>::Transform;

    std::list<SetOutcome> transform(const SetResponse& response) override;
};
