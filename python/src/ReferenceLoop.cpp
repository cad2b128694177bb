#include "ReferenceLoop.h"

#include <chrono>

#include "chanlink/client/ReconnectingClient.h"

double referenceGetLoop(const std::string& host, const std::string& port,
                        const std::string& username, const std::string& password,
                        unsigned int channel, unsigned long count) {
    ReconnectingClient client(ReconnectingClient::tcpFactory(host, port), username, password);
    client.start();
    if (!client.waitUntilReady(std::chrono::seconds(5))) {
        return -1;
    }
    const auto start = std::chrono::steady_clock::now();
    for (unsigned long i = 0; i < count; ++i) {
        const auto outcome = client.blockingGet(channel, std::chrono::seconds(5));
        if (!outcome || !outcome->getSuccess()) {
            return -1;
        }
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
