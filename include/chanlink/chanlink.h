#pragma once

// Every public header of chanlink. Keep it complete: a test checks it.

// Wire primitives and framing
#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"
#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

// Messages
#include "chanlink/messages/ChannelListMessage.h"
#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/Message.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/OpCode.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"
#include "chanlink/messages/UserAccountRequest.h"

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
#include "chanlink/transport/PollableTransport.h"
#include "chanlink/transport/ReadTransport.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "chanlink/transport/TCPTransport.h"
#include "chanlink/transport/Transport.h"
#include "chanlink/transport/TransportPoll.h"
#include "chanlink/transport/WriteTransport.h"

// Endpoints and session
#include "chanlink/endpoint/EndPointBuilder.h"
#include "chanlink/endpoint/IncomingEndPoint.h"
#include "chanlink/endpoint/OutgoingEndPoint.h"
#include "chanlink/endpoint/Session.h"

// Client operations and session
#include "chanlink/client/ChannelReceiverTable.h"
#include "chanlink/client/ClientClock.h"
#include "chanlink/client/ClientGetManager.h"
#include "chanlink/client/ClientLoginManager.h"
#include "chanlink/client/ClientPushSubscriptionManager.h"
#include "chanlink/client/ClientSession.h"
#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/ClientSetManager.h"
#include "chanlink/client/ClientSubscriptionManager.h"
#include "chanlink/client/ErrorResponseToGetOutcomeTransform.h"
#include "chanlink/client/ErrorResponseToSetOutcomeTransform.h"
#include "chanlink/client/GetOutcome.h"
#include "chanlink/client/GetOutcomeTransform.h"
#include "chanlink/client/GetResponseToGetOutcomeTransform.h"
#include "chanlink/client/LoginOutcome.h"
#include "chanlink/client/LoginValveController.h"
#include "chanlink/client/PushedValueRelay.h"
#include "chanlink/client/QueuedSetOperation.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/client/SetOutcome.h"
#include "chanlink/client/SetOutcomeTransform.h"
#include "chanlink/client/SetResponseToSetOutcomeTransform.h"

// Channel value processing
#include "chanlink/processing/BitfieldMultiplexedTransform.h"
#include "chanlink/processing/ChannelCache.h"
#include "chanlink/processing/ChannelIdMappingTransform.h"
#include "chanlink/processing/LatestValueQueue.h"

// Device side
#include "chanlink/server/ChannelStore.h"
#include "chanlink/server/DeviceConnection.h"
#include "chanlink/server/DeviceEvent.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/DeviceSettings.h"
#include "chanlink/server/LiveChannel.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/server/MessageBacklog.h"

// Capture to pcap files
#include "chanlink/capture/CaptureStream.h"
#include "chanlink/capture/CaptureTransport.h"
#include "chanlink/capture/LoginRedactor.h"
#include "chanlink/capture/PcapWriter.h"
