#pragma once

#include <list>
#include <memory>

#include "chanlink/client/SetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/SetResponse.h"

// A successful outcome for the channel a set response names.
class SetResponseToSetOutcomeTransform : public Transform<SetResponse, SetOutcome> {
public:
    explicit SetResponseToSetOutcomeTransform(std::shared_ptr<Receiver<SetOutcome>> receiver);
    ~SetResponseToSetOutcomeTransform() override;

    std::list<SetOutcome> transform(const SetResponse& response) override;
};
