#pragma once

#include <list>

#include "chanlink/client/GetOutcome.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/messages/GetResponse.h"

// One successful outcome per channel value of a get response, in the
// response's order; a response without values gives none.
class GetResponseToGetOutcomeTransform : public Transform<GetResponse, GetOutcome> {
public:
    using Transform<GetResponse, GetOutcome>::Transform;

    std::list<GetOutcome> transform(const GetResponse& response) override;
};
