#include "chanlink/client/SetResponseToSetOutcomeTransform.h"

std::list<SetOutcome> SetResponseToSetOutcomeTransform::transform(const SetResponse& response) {
    return {SetOutcome(response)};
}
