#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BridgeConfig.h"
#include "BrokerLink.h"
#include "DeviceLink.h"

// chanlink-bridge itself: every device and the broker connection waited on
// by one poll() in the library's tick-and-wait loop, no threads. Values go
// out as the devices send them; /set messages become sets; a stop request
// publishes every status as offline and ends once the broker has
// acknowledged it (3 s at most).
class Bridge {
public:
    using Log = std::function<void(const std::string&)>;

    Bridge(BridgeConfig config, Log log);

    // Runs until stopRequested() is true, checked whenever the poll wakes;
    // wakeDescriptor (readable after a stop request, -1 for none) wakes it.
    // 0 after a clean stop, 1 when the broker connection cannot be set up.
    int run(int wakeDescriptor, const std::function<bool()>& stopRequested);

private:
    void publishBelowPrefix(const std::string& topic, const std::string& payload, bool retain);
    void onConnected();
    void onMessage(const std::string& topic, const std::string& payload, bool retained);

    BridgeConfig config;
    Log log;
    std::string prefix;  // topic prefix and '/'
    BrokerLink broker;
    std::vector<std::unique_ptr<DeviceLink>> devices;
    std::map<std::string, DeviceLink*> byName;
};
