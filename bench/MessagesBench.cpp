// Building, validating and producing messages: the per-frame work of a client
// receiving responses and of a device answering requests.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "chanlink/messages/ChannelValue.h"
#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/wire/ByteVectorReader.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Values of the common shape: four header bytes and a 32-bit number.
std::vector<std::shared_ptr<const ChannelValue>> channelValues(std::int64_t count) {
    std::vector<std::shared_ptr<const ChannelValue>> values;
    for (unsigned int id = 0; id < count; ++id) {
        values.push_back(std::make_shared<ChannelValue>(id, 0x01020304u + id));
    }
    return values;
}

Bytes getResponsePayload(std::int64_t count) {
    return GetResponse::newInstance(channelValues(count))->write();
}

void BM_GetResponseBuild(benchmark::State& state) {
    const auto values = channelValues(state.range(0));
    for (auto _ : state) {
        auto message = GetResponse::newInstance(values);
        benchmark::DoNotOptimize(message.get());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_GetResponseBuild)->Arg(1)->Arg(100);

// What a client does with a received get response: produce it, then take its values.
void BM_GetResponseRead(benchmark::State& state) {
    const Bytes payload = getResponsePayload(state.range(0));
    for (auto _ : state) {
        const auto message = GetResponse::read(payload);
        auto values = static_cast<const GetResponse&>(*message).getChannelValues();
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_GetResponseRead)->Arg(1)->Arg(100);

void BM_GetResponseValidate(benchmark::State& state) {
    const Bytes payload = getResponsePayload(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetResponse::validate(payload));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_GetResponseValidate)->Arg(100);

// The same validation done the plain way, making and deleting one heap value
// per value read: the baseline that the allocation-free walk is measured against.
void BM_GetResponseValidateWithHeapValues(benchmark::State& state) {
    const Bytes payload = getResponsePayload(state.range(0));
    for (auto _ : state) {
        ByteVectorReader reader(payload);
        reader.setReadPosition(GetResponse::CountPosition);
        for (unsigned int left = reader.readUint16(); left > 0; --left) {
            delete ChannelValue::readBytes(reader);
        }
        benchmark::DoNotOptimize(reader.remainingBytes() == 0);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_GetResponseValidateWithHeapValues)->Arg(100);

// A three-byte frame claiming 65535 values: rejected after reading its length
// rather than after walking 65535 empty values.
void BM_GetResponseRejectLargeCount(benchmark::State& state) {
    const Bytes payload = {GetResponse::Code, 0xFF, 0xFF};
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetResponse::read(payload));
    }
}
BENCHMARK(BM_GetResponseRejectLargeCount);

// The baseline for the above: walking all 65535 values the frame claims.
void BM_GetResponseRejectLargeCountByWalking(benchmark::State& state) {
    const Bytes payload = {GetResponse::Code, 0xFF, 0xFF};
    for (auto _ : state) {
        ByteVectorReader reader(payload);
        reader.setReadPosition(GetResponse::CountPosition);
        for (unsigned int left = reader.readUint16(); left > 0; --left) {
            ChannelValue::skipBytes(reader);
        }
        benchmark::DoNotOptimize(reader.remainingBytes() == 0);
    }
}
BENCHMARK(BM_GetResponseRejectLargeCountByWalking);

// One frame of each response a client registers, through the client's chain.
void BM_ChainProduceClientResponses(benchmark::State& state) {
    MessageProductionChain chain = *MessageProductionChain::newClientInstance();
    const std::vector<Bytes> frames = {
        LoginResponse::newInstance(LoginResponse::Success)->write(),
        getResponsePayload(1),
        SetResponse::newInstance(7)->write(),
        SubscriptionResponse::newInstance({7})->write(),
        ErrorResponse::newInstance(0, 5, 7)->write(),
    };
    for (auto _ : state) {
        for (const Bytes& frame : frames) {
            benchmark::DoNotOptimize(chain.produceMessageFromFrame(frame));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(frames.size()));
}
BENCHMARK(BM_ChainProduceClientResponses);

// A request reaching a client: its opcode has no producer and it is dropped.
void BM_ChainDropUnregistered(benchmark::State& state) {
    MessageProductionChain chain = *MessageProductionChain::newClientInstance();
    const Bytes frame = GetRequest::newInstance({7})->write();
    for (auto _ : state) {
        benchmark::DoNotOptimize(chain.produceMessageFromFrame(frame));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ChainDropUnregistered);

}  // namespace
