#include "chanlink/transport/WriteTransport.h"

WriteTransport::~WriteTransport() = default;
