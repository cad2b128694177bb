// Framing throughput: encoder and decoder against memcpy of the same bytes,
// and a large frame decoded whole versus in transport-sized pieces.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Payload bytes that need no stuffing, the common case for channel data.
Bytes plainPayload(std::size_t size) {
    std::mt19937 rng(1);
    Bytes payload(size);
    for (auto& b : payload) {
        b = static_cast<unsigned char>(rng() % 0xFD);
    }
    return payload;
}

Bytes encode(const Bytes& payload) {
    Bytes stream;
    Encoder().injectFrame(payload, stream);
    return stream;
}

void BM_Memcpy(benchmark::State& state) {
    const Bytes source = plainPayload(static_cast<std::size_t>(state.range(0)));
    Bytes target(source.size());
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Memcpy)->Arg(1 << 20);

void BM_Encode(benchmark::State& state) {
    const Bytes payload = plainPayload(static_cast<std::size_t>(state.range(0)));
    Encoder encoder;
    Bytes stream;
    stream.reserve(payload.size() + 16);
    for (auto _ : state) {
        stream.clear();
        encoder.injectFrame(payload, stream);
        benchmark::DoNotOptimize(stream.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Encode)->Arg(1 << 20);

// One frame of range(0) payload bytes handed to the decoder in pieces of
// range(1) bytes, then extracted.
void BM_Decode(benchmark::State& state) {
    const Bytes stream = encode(plainPayload(static_cast<std::size_t>(state.range(0))));
    const auto pieceSize = static_cast<std::size_t>(state.range(1));
    std::vector<Bytes> pieces;
    for (std::size_t at = 0; at < stream.size(); at += pieceSize) {
        const std::size_t end = std::min(stream.size(), at + pieceSize);
        pieces.emplace_back(stream.begin() + static_cast<long>(at),
                            stream.begin() + static_cast<long>(end));
    }
    // A connection keeps its decoder, so its buffers are reused frame after frame.
    Decoder decoder;
    for (auto _ : state) {
        for (const Bytes& piece : pieces) {
            decoder.injectBytes(piece);
        }
        Bytes frame = decoder.extractFrame();
        if (frame.size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("frame lost");
        }
        benchmark::DoNotOptimize(frame.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Decode)->Args({1 << 20, 1 << 21})->Args({1 << 20, 1024});

// Many small frames in one read, as a busy connection delivers them.
void BM_DecodeSmallFrames(benchmark::State& state) {
    Bytes stream;
    const Bytes payload = plainPayload(static_cast<std::size_t>(state.range(0)));
    for (int i = 0; i < 100; ++i) {
        Encoder().injectFrame(payload, stream);
    }
    Decoder decoder;
    for (auto _ : state) {
        decoder.injectBytes(stream);
        while (decoder.hasFrames()) {
            benchmark::DoNotOptimize(decoder.extractFrame());
        }
    }
    state.SetItemsProcessed(state.iterations() * 100);
    state.SetBytesProcessed(state.iterations() * 100 * state.range(0));
}
BENCHMARK(BM_DecodeSmallFrames)->Arg(16)->Arg(300);

}  // namespace
