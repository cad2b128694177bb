#include "chanlink/transport/ReadTransport.h"

ReadTransport::~ReadTransport() = default;
