#include "chanlink/transport/PollableTransport.h"

PollableTransport::~PollableTransport() = default;
