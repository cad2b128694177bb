#pragma once

// Every public header of chanlink's TLS library (chanlink::tls).
#include "chanlink/tls/TLSClientSettings.h"
#include "chanlink/tls/TLSClientTransport.h"
#include "chanlink/tls/TLSContext.h"
#include "chanlink/tls/TLSServerSettings.h"
#include "chanlink/tls/TLSServerTransport.h"
#include "chanlink/tls/TLSTransport.h"
