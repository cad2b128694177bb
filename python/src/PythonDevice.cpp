#include "PythonDevice.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <stdexcept>
#include <utility>

namespace {

// Ports tried when the system chooses one that ::1 already uses.
constexpr int ListenAttempts = 5;

void wake(int descriptor) {
    const char byte = 1;
    if (descriptor >= 0 && ::write(descriptor, &byte, 1) < 0) {
        // The pipe is full, so a wake-up is already pending.
    }
}

}  // namespace

PythonDevice::PythonDevice(const std::vector<Channel>& channels, const DeviceSettings& settings,
                           unsigned short requestedPort) {
    for (const Channel& channel : channels) {
        store->addChannel(channel.id, channel.initial, channel.readOnly, channel.name);
    }
    server = std::make_unique<DeviceServer>(store, settings);
    for (int attempt = 0; attempt < ListenAttempts; ++attempt) {
        if (!server->listen(std::to_string(requestedPort), "127.0.0.1")) {
            throw std::runtime_error("cannot listen on 127.0.0.1 port " +
                                     std::to_string(requestedPort));
        }
        port = static_cast<unsigned short>(std::stoul(server->getListeningService()));
        ipv6 = std::make_unique<TCPServerTransportBuilder>(std::to_string(port), "::1");
        if (ipv6->isListening() || requestedPort != 0) {
            break;
        }
    }
    if (!ipv6->isListening() || ::pipe2(stopPipe, O_CLOEXEC) != 0) {
        ipv6.reset();
    } else {
        ::listen(ipv6->getSocket(), SOMAXCONN);
        accepting = std::thread([this] { acceptIpv6(); });
    }
    serving = std::thread([this] { serve(); });
}

PythonDevice::~PythonDevice() {
    close();
    for (int end : stopPipe) {
        if (end >= 0) {
            ::close(end);
        }
    }
}

void PythonDevice::serve() {
    while (!stopping) {
        server->poll(std::chrono::milliseconds(-1));
        runTasks();
    }
    server->shutdown();
    runTasks();
}

void PythonDevice::acceptIpv6() {
    for (;;) {
        pollfd waitList[2] = {{ipv6->getSocket(), POLLIN, 0}, {stopPipe[0], POLLIN, 0}};
        if (::poll(waitList, 2, -1) < 0 || waitList[1].revents != 0) {
            if (stopping) {
                return;
            }
            continue;
        }
        if (auto transport = ipv6->accept(0, 0)) {
            runOnDevice([this, transport] { server->adopt(transport); }, false);
        }
    }
}

void PythonDevice::runTasks() {
    for (;;) {
        std::function<void()> task;
        {
            const std::lock_guard<std::mutex> guard(lock);
            if (tasks.empty()) {
                return;
            }
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
    }
}

bool PythonDevice::runOnDevice(std::function<void()> task, bool wait) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (closed) {
            return false;
        }
        tasks.push_back([task = std::move(task), done] {
            task();
            done->set_value();
        });
    }
    wake(server->getWakeDescriptor());
    if (wait) {
        finished.wait();
    }
    return true;
}

bool PythonDevice::update(unsigned int channel, const std::vector<unsigned char>& data) {
    bool written = false;
    return runOnDevice([&] { written = store->update(channel, data); }, true) && written;
}

std::optional<std::vector<unsigned char>> PythonDevice::value(unsigned int channel) {
    std::optional<std::vector<unsigned char>> data;
    runOnDevice(
        [&] {
            if (auto found = store->getValue(channel)) {
                data = found->getData();
            }
        },
        true);
    return data;
}

void PythonDevice::close() {
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (closed) {
            return;
        }
        closed = true;
        stopping = true;
    }
    wake(server->getWakeDescriptor());
    wake(stopPipe[1]);
    if (accepting.joinable()) {
        accepting.join();
    }
    if (serving.joinable()) {
        serving.join();
    }
    ipv6.reset();
}
