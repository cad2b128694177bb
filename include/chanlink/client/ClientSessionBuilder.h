#pragma once

#include <memory>
#include <string>

#include "chanlink/client/ClientSession.h"
#include "chanlink/transport/Transport.h"

// Builds a complete, wired ClientSession from a transport, a username and a
// password:
//
//     auto session = ClientSessionBuilder()
//                        .setTransport(transport)
//                        .setUsername("user")
//                        .setPassword("secret")
//                        .build();
//
// The session receives login, get, set and subscription responses and error
// responses; every request but the login waits in a closed valve until a
// login succeeds. Endpoint capacities are 1024 bytes.
class ClientSessionBuilder {
public:
    ClientSessionBuilder();
    virtual ~ClientSessionBuilder();

    // Each setter replaces an earlier value and returns the builder.
    ClientSessionBuilder& setTransport(std::shared_ptr<Transport> transport);
    // Both must be set, though either may be empty.
    ClientSessionBuilder& setUsername(const std::string& username);
    ClientSessionBuilder& setPassword(const std::string& password);

    // A wholly new session on the transport, or an empty pointer unless the
    // transport, the username and the password were all set. Sessions built
    // one after the other share only the transport.
    std::shared_ptr<ClientSession> build();

private:
    std::shared_ptr<Transport> transport;
    std::string username;
    std::string password;
    bool usernameSet = false;
    bool passwordSet = false;
};
