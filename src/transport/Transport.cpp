#include "chanlink/transport/Transport.h"

Transport::~Transport() = default;
