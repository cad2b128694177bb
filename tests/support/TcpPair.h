#pragma once

#include <memory>
#include <string>

#include "chanlink/transport/TCPClientTransport.h"
#include "chanlink/transport/TCPServerTransportBuilder.h"
#include "support/Eventually.h"

namespace testing_support {

// A client transport connected to a listener on a port the system chose, and
// the accepted end: `server` stays empty if the connection did not complete
// in time. Both ends run in the caller's thread.
struct TcpPair {
    explicit TcpPair(const std::string& host = "127.0.0.1",
                     std::shared_ptr<Receiver<ConnectionOutcome>> states = nullptr)
        : client(std::make_shared<TCPClientTransport>(host, listener.getListeningService(),
                                                      std::move(states))) {
        client->connect();
        eventually([&] {
            server = server ? server : listener.accept(0, 1000);
            client->tick();
            return server && client->state() == ConnectionOutcome::Connected;
        });
    }

    TCPServerTransportBuilder listener{"0", ""};
    std::shared_ptr<TCPClientTransport> client;
    std::shared_ptr<TCPTransport> server;
};

}  // namespace testing_support
