#pragma once

// Every public header of chanlink. Keep it complete: a test checks it.

// Wire primitives and framing
#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

// Messages
#include "chanlink/messages/Message.h"
#include "chanlink/messages/OpCode.h"

// Dataflow primitives

// Transports

// Endpoints and session

// Client operations and session

// Channel value processing
