#include "chanlink/client/SetResponseToSetOutcomeTransform.h"

SetResponseToSetOutcomeTransform::SetResponseToSetOutcomeTransform(
    std::shared_ptr<Receiver<SetOutcome>> receiver)
    : Transform<SetResponse, SetOutcome>(std::move(receiver)) {}

SetResponseToSetOutcomeTransform::~SetResponseToSetOutcomeTransform() = default;

std::list<SetOutcome> SetResponseToSetOutcomeTransform::transform(const SetResponse& response) {
    return {SetOutcome(response)};
}
