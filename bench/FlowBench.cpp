// Cost of delivery through the dataflow primitives: a dispatcher's snapshot
// against plain virtual calls on the same receivers, and the outgoing queue.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "chanlink/flow/Dispatcher.h"
#include "chanlink/flow/QueuedReceiver.h"
#include "chanlink/messages/Message.h"

namespace {

class Counter : public Receiver<int> {
public:
    void receive(const int& item) override { benchmark::DoNotOptimize(total += item); }

private:
    long total = 0;
};

std::vector<std::shared_ptr<Receiver<int>>> counters(benchmark::State& state) {
    std::vector<std::shared_ptr<Receiver<int>>> receivers;
    for (int i = 0; i < state.range(0); ++i) {
        receivers.push_back(std::make_shared<Counter>());
    }
    return receivers;
}

void BM_DirectCalls(benchmark::State& state) {
    const auto receivers = counters(state);
    for (auto _ : state) {
        for (const auto& receiver : receivers) {
            receiver->receive(1);
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DirectCalls)->Arg(1)->Arg(4)->Arg(16);

void BM_Dispatch(benchmark::State& state) {
    Dispatcher<int> dispatcher;
    for (const auto& receiver : counters(state)) {
        dispatcher.addReceiver(receiver);
    }
    for (auto _ : state) {
        dispatcher.receive(1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Dispatch)->Arg(1)->Arg(4)->Arg(16);

// One request through the outgoing queue: queued, then taken out.
void BM_QueueRoundTrip(benchmark::State& state) {
    QueuedReceiver<std::shared_ptr<const Message>> queue;
    const auto message = std::make_shared<const Message>(OpCode{0});
    for (auto _ : state) {
        queue.receive(message);
        benchmark::DoNotOptimize(queue.dequeue());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QueueRoundTrip);

}  // namespace
