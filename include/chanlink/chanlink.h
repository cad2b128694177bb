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
#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/FunctionReceiver.h"
#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/flow/Receiver.h"
#include "chanlink/flow/Transform.h"
#include "chanlink/flow/TypedTransform.h"
#include "chanlink/flow/Valve.h"

// Transports
#include "chanlink/transport/ConnectionOutcome.h"
#include "chanlink/transport/LoopBackTransport.h"
#include "chanlink/transport/ReadTransport.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "chanlink/transport/TCPTransport.h"
#include "chanlink/transport/Transport.h"
#include "chanlink/transport/WriteTransport.h"

// Endpoints and session
#include "chanlink/endpoint/EndPointBuilder.h"
#include "chanlink/endpoint/IncomingEndPoint.h"
#include "chanlink/endpoint/OutgoingEndPoint.h"
#include "chanlink/endpoint/Session.h"

// Client operations and session

// Channel value processing
