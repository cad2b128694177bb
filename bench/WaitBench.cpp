// Processor time spent waiting for a silent device: a listener on 127.0.0.1
// accepts the connection and never answers. The timed blocking login waits
// on the socket between ticks; the baseline ticks until the same deadline, as
// a loop without a wait does. Each run waits the whole time (five seconds by
// default), so run these alone with a filter.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <thread>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "chanlink/wire/Encoder.h"

namespace {

double milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

// A connected session whose device never answers.
struct SilentDevice {
    SilentDevice() : listener("0", "") {
        transport = std::make_shared<TCPClientTransport>("127.0.0.1",
                                                         listener.getListeningService(), nullptr);
        transport->blockingConnect();
        accepted = listener.accept(1, 0);
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername("u")
                      .setPassword("p")
                      .build();
    }
    bool ready() const { return accepted && transport->state() == ConnectionOutcome::Connected; }

    TCPServerTransportBuilder listener;
    std::shared_ptr<TCPClientTransport> transport;
    std::shared_ptr<TCPTransport> accepted;
    std::shared_ptr<ClientSession> session;
};

// Runs wait once per iteration and reports the process's user and system
// time per iteration, in milliseconds, beside the wall time.
template <typename Wait>
void measure(benchmark::State& state, Wait wait) {
    const std::chrono::milliseconds timeout(state.range(0));
    double user = 0;
    double system = 0;
    for (auto _ : state) {
        SilentDevice device;
        if (!device.ready()) {
            state.SkipWithError("no connection on 127.0.0.1");
            return;
        }
        rusage before{};
        rusage after{};
        ::getrusage(RUSAGE_SELF, &before);
        wait(device, timeout);
        ::getrusage(RUSAGE_SELF, &after);
        user += milliseconds(after.ru_utime) - milliseconds(before.ru_utime);
        system += milliseconds(after.ru_stime) - milliseconds(before.ru_stime);
    }
    state.counters["user_ms"] = benchmark::Counter(user, benchmark::Counter::kAvgIterations);
    state.counters["sys_ms"] = benchmark::Counter(system, benchmark::Counter::kAvgIterations);
}

void BM_WaitSilentDeviceTimedLogin(benchmark::State& state) {
    measure(state, [](SilentDevice& device, std::chrono::milliseconds timeout) {
        benchmark::DoNotOptimize(device.session->blockingLogin(timeout));
    });
}
BENCHMARK(BM_WaitSilentDeviceTimedLogin)
    ->Arg(5000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The untimed blockingLogin() has no time limit, so the device answers when
// the time is up, from a second thread of the benchmark.
void BM_WaitSilentDeviceUntimedLogin(benchmark::State& state) {
    measure(state, [](SilentDevice& device, std::chrono::milliseconds timeout) {
        std::thread answer([&device, timeout] {
            std::this_thread::sleep_for(timeout);
            std::vector<unsigned char> frame;
            Encoder().injectFrame(LoginResponse::newInstance(LoginResponse::Success)->getPayload(),
                                  frame);
            device.accepted->write(frame.data(), static_cast<int>(frame.size()));
        });
        benchmark::DoNotOptimize(device.session->blockingLogin());
        answer.join();
    });
}
BENCHMARK(BM_WaitSilentDeviceUntimedLogin)
    ->Arg(5000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_WaitSilentDeviceTickingLoop(benchmark::State& state) {
    measure(state, [](SilentDevice& device, std::chrono::milliseconds timeout) {
        ClientSession& session = *device.session;
        session.initiateLogin();
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (session.getLoginState().loginPending() &&
               std::chrono::steady_clock::now() < deadline) {
            session.tick();
        }
    });
}
BENCHMARK(BM_WaitSilentDeviceTickingLoop)
    ->Arg(5000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
