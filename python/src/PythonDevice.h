#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/DeviceSettings.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"

// The device behind chanlink.Device: a DeviceServer over a
// MemoryChannelStore, served by a thread of its own on the loopback
// addresses. The server is not thread-safe, so other threads never call it:
// they hand it work through a queue and its wake descriptor, and wait until
// the serving thread has done it. Call without the GIL; nothing here touches
// Python.
class PythonDevice {
public:
    struct Channel {
        unsigned int id;
        std::vector<unsigned char> initial;
        bool readOnly;
        std::string name;
    };

    // Listens on 127.0.0.1 and ::1 (IPv4 alone where the system has no IPv6
    // loopback) at port, 0 for a free one, and starts serving. Throws
    // std::runtime_error when it cannot listen.
    PythonDevice(const std::vector<Channel>& channels, const DeviceSettings& settings,
                 unsigned short port);
    // close().
    ~PythonDevice();

    PythonDevice(const PythonDevice&) = delete;
    PythonDevice& operator=(const PythonDevice&) = delete;

    unsigned short getPort() const { return port; }
    // The device's own write (MemoryChannelStore::update), published to the
    // subscribers; returns once done. False when closed.
    bool update(unsigned int channel, const std::vector<unsigned char>& data);
    // The channel's value; none when closed.
    std::optional<std::vector<unsigned char>> value(unsigned int channel);
    // Closes every connection and stops serving.
    void close();

private:
    // Runs task on the serving thread and waits for it; false when closed.
    bool runOnDevice(std::function<void()> task, bool wait);
    void serve();
    void acceptIpv6();
    void runTasks();

    std::shared_ptr<MemoryChannelStore> store = std::make_shared<MemoryChannelStore>();
    std::unique_ptr<DeviceServer> server;
    // DeviceServer listens on one address; ::1 is taken here and its
    // connections handed over.
    std::unique_ptr<TCPServerTransportBuilder> ipv6;
    unsigned short port = 0;
    int stopPipe[2] = {-1, -1};
    std::mutex lock;
    std::deque<std::function<void()>> tasks;
    bool closed = false;
    std::atomic<bool> stopping{false};
    std::thread serving;
    std::thread accepting;
};
