// chanlink_tls end to end: a ClientSession over TLSClientTransport against a
// DeviceServer that wraps its connections in TLSServerTransport, both driven
// from this thread. Certificates are made for the run by make-certs.sh.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>

#include <cstdlib>

#include "chanlink/chanlink.h"
#include "chanlink/tls.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RecordingReceiver.h"

using testing_support::eventually;
using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;

namespace {

std::string certificates;

std::string file(const std::string& name) {
    return certificates + "/" + name;
}

TLSClientSettings client(const std::string& ca, const std::string& name = "",
                         const std::string& certificate = "") {
    TLSClientSettings settings;
    settings.caFile = file(ca);
    settings.serverName = name;
    if (!certificate.empty()) {
        settings.certificateFile = file(certificate + ".pem");
        settings.keyFile = file(certificate + ".key");
    }
    return settings;
}

class TLSTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/chanlink-tls-XXXXXX";
        certificates = ::mkdtemp(pattern) != nullptr ? pattern : "/nonexistent";
        ASSERT_EQ(std::system(("bash " CHANLINK_MAKE_CERTS " " + certificates).c_str()), 0);
    }
    static void TearDownTestSuite() {
        [[maybe_unused]] const int ignored = std::system(("rm -rf " + certificates).c_str());
    }

    // A device serving TLS with the named certificate; mutual: asks clients
    // for a certificate issued by ca.
    void startDevice(const std::string& certificate = "device", bool mutual = false) {
        std::string error;
        auto context = TLSContext::forServer(
            {file(certificate + ".pem"), file(certificate + ".key"), mutual ? file("ca.pem") : ""},
            error);
        ASSERT_TRUE(context) << error;
        store->addChannel(1, {0, 0, 0, 0}, false);
        settings.username = "admin";
        settings.password = "secret";
        settings.wrapConnection = [this, wrap = TLSServerTransport::wrapper(context)](
                                      std::shared_ptr<TCPTransport> accepted) {
            auto wrapped = std::static_pointer_cast<TLSTransport>(wrap(std::move(accepted)));
            lastAccepted = wrapped;
            return wrapped;
        };
        server = std::make_unique<DeviceServer>(store, settings);
        ASSERT_TRUE(server->listen("0", "127.0.0.1"));
    }

    // Connects and logs in; false once the transport has failed or closed.
    bool login(const TLSClientSettings& tls) {
        states = std::make_shared<RecordingReceiver<ConnectionOutcome>>();
        transport = std::make_shared<TLSClientTransport>("127.0.0.1", server->getListeningService(),
                                                         states, tls);
        transport->connect();
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername("admin")
                      .setPassword("secret")
                      .build();
        session->initiateLogin();
        eventually([&] {
            server->poll(std::chrono::milliseconds(0));
            session->tick();
            return session->getLoginState().loggedIn() || TransportPoll::of(*transport).ended();
        });
        return session->getLoginState().loggedIn();
    }

    std::shared_ptr<MemoryChannelStore> store = std::make_shared<MemoryChannelStore>();
    DeviceSettings settings;
    std::unique_ptr<DeviceServer> server;
    std::weak_ptr<TLSTransport> lastAccepted;  // the device's end of the last connection
    std::shared_ptr<TLSClientTransport> transport;
    std::shared_ptr<RecordingReceiver<ConnectionOutcome>> states;  // the transport's
    std::shared_ptr<ClientSession> session;
    const TLSClientSettings trusting = client("ca.pem");
};

}  // namespace

TEST_F(TLSTest, DeviceIsVerifiedAndClientCertificatesAreRequiredWhenAskedFor) {
    struct Case {
        const char* deviceCertificate;
        bool mutual;
        TLSClientSettings client;
        const char* refusal;  // empty: logs in
    };
    const Case cases[] = {
        {"device", false, client("ca.pem", "localhost"), ""},
        {"device", false, client("otherca.pem"), "verify failed: unable to get local issuer"},
        {"expired", false, client("ca.pem"), "certificate verify failed: certificate has expired"},
        {"device", false, client("ca.pem", "other.example"), "verify failed: hostname mismatch"},
        {"client", false, client("ca.pem"), "verify failed: IP address mismatch"},
        {"device", true, client("ca.pem", "", "client"), ""},
        {"device", true, client("ca.pem"), "certificate required"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.client.caFile + " " + c.client.serverName + c.deviceCertificate);
        startDevice(c.deviceCertificate, c.mutual);
        EXPECT_EQ(login(c.client), *c.refusal == '\0') << transport->getFailureReason();
        EXPECT_NE(transport->getFailureReason().find(c.refusal), std::string::npos)
            << transport->getFailureReason();
        // Its receiver heard the state it ended in; once ended, a tick changes nothing.
        const ConnectionOutcome::ConnectionStates state = TransportPoll::of(*transport).state;
        transport->tick();
        EXPECT_EQ(TransportPoll::of(*transport).state, state);
        EXPECT_TRUE(states->count() > 0 && states->received().back().getState() == state);
    }
}

// A login, set, get and subscription over TLS, through the reconnecting
// client's session; and again once the device has restarted, over a new
// transport from the factory.
TEST_F(TLSTest, ClientsGetSetSubscribeAndComeBackOverTls) {
    startDevice();
    const std::string port = server->getListeningService();
    std::string error;
    auto factory = TLSClientTransport::factory("127.0.0.1", port, trusting, error);
    ASSERT_TRUE(factory) << error;
    auto clock = std::make_shared<testing_support::ManualClock>();
    ReconnectingClient client(factory, "admin", "secret", clock);
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    client.addSubscription(1, values);
    const auto until = [&](auto condition) {
        return eventually([&] {
            client.tick();
            server->poll(std::chrono::milliseconds(0));
            return condition();
        });
    };
    client.start();
    ASSERT_TRUE(until([&] { return values->count() == 1; }));
    client.setChannel(1, {1, 2, 3, 4}, set);
    client.requestChannel(1, got);
    ASSERT_TRUE(until([&] { return got->count() == 1 && values->count() == 3; }));
    EXPECT_TRUE(set->received()[0].getSuccess());
    EXPECT_EQ(got->received()[0].getData(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(values->received()[1].getData(), (Bytes{1, 2, 3, 4}));  // the push

    server = std::make_unique<DeviceServer>(store, settings);  // the device restarts
    ASSERT_TRUE(server->listen(port, "127.0.0.1"));
    ASSERT_TRUE(until([&] { return client.getState() == ReconnectingClient::WaitingToReconnect; }));
    store->update(1, {9, 9, 9, 9});
    clock->advance(client.getRetryDelay());
    ASSERT_TRUE(until([&] { return values->count() == 4; }));
    EXPECT_EQ(values->received().back().getData(), (Bytes{9, 9, 9, 9}));
}

// A device that cannot be set up says why, with OpenSSL's reason where there
// is one; a transport needs a context of its own side, a server transport a
// connection.
TEST_F(TLSTest, SetUpFailuresSayWhy) {
    const std::pair<TLSServerSettings, std::string> cases[] = {
        {{file("device.pem"), file("client.key"), ""},
         "cannot load the key " + file("client.key") + ": key values mismatch"},
        // A key of another type is taken, and found not to match only then.
        {{file("device.pem"), file("rsa.key"), ""},
         "the key " + file("rsa.key") + " does not belong to the certificate " +
             file("device.pem")},
    };
    std::string error;
    for (const auto& [settings, expected] : cases) {
        EXPECT_FALSE(TLSContext::forServer(settings, error));
        EXPECT_EQ(error, expected);
    }
    const TLSServerTransport transport(nullptr, TLSContext::forClient(trusting, error));
    EXPECT_EQ(transport.getFailureReason(), "no TLS server context");
    const auto context = TLSContext::forServer({file("device.pem"), file("device.key"), ""}, error);
    EXPECT_EQ(TLSServerTransport(nullptr, context).getFailureReason(), "not connected");
    TLSClientTransport client("127.0.0.1", "1", nullptr, context);
    client.connect();
    EXPECT_EQ(client.getFailureReason(), "no TLS client context");
}

// A connection whose device has gone fails on the next writes instead of
// waiting to write for ever; and a closed transport leaves its descriptor
// alone, which by then may be another connection's.
TEST_F(TLSTest, AnEndedConnectionFailsItsWritesAndLeavesItsDescriptorAlone) {
    startDevice();
    ASSERT_TRUE(login(trusting));
    server.reset();
    const char byte = 0;
    EXPECT_TRUE(eventually([&] {
        transport->write(&byte, 1);
        return TransportPoll::of(*transport).ended();
    })) << "no write failed";

    startDevice();
    ASSERT_TRUE(login(trusting));
    const int descriptor = TransportPoll::of(*transport).descriptor;
    transport->close();
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    ASSERT_EQ(::dup2(ends[0], descriptor), descriptor);
    ASSERT_EQ(::write(ends[1], &byte, 1), 1);
    session.reset();
    transport.reset();  // closes it once more
    char got = 1;
    EXPECT_EQ(::recv(descriptor, &got, 1, MSG_DONTWAIT), 1);
    for (const int end : {descriptor, ends[0], ends[1]}) {
        ::close(end);
    }
}

// The transport's own waits: while its TCP connect is under way it is waited
// on at its socket for writing (a listener whose queue is full leaves the
// connect pending); once connected, output the socket did not take at once
// waits in the stream, and the transport's tick sends it when there is room.
TEST_F(TLSTest, WaitsAreOnTheSocketAndTickSendsWhatWaited) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    const int full = ::socket(AF_INET, SOCK_STREAM, 0), first = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_TRUE(::bind(full, any, size) == 0 && ::listen(full, 0) == 0 &&
                ::getsockname(full, any, &size) == 0 && ::connect(first, any, size) == 0);
    TLSClientTransport pending("127.0.0.1", std::to_string(ntohs(address.sin_port)), nullptr,
                               trusting);
    pending.connect();
    ASSERT_EQ(TransportPoll::of(pending).state, ConnectionOutcome::Connecting);
    EXPECT_EQ(TransportPoll::of(pending).entry(false).events, POLLOUT);
    ::close(first);
    ::close(full);

    startDevice();
    ASSERT_TRUE(login(trusting));
    const std::vector<char> noise(16384, 0);  // bytes outside any frame: the device drops them
    for (int i = 0; i < 4096 && transport->write(noise.data(), 16384) > 0; ++i) {
        ERR_raise(ERR_LIB_USER, 1);  // someone else's error, left in the queue
    }
    ASSERT_NE(TransportPoll::of(*transport).events & POLLOUT, 0) << "the socket took it all";
    EXPECT_TRUE(eventually([&] {
        server->poll(std::chrono::milliseconds(0));
        transport->tick();
        return (TransportPoll::of(*transport).events & POLLOUT) == 0;
    }));
    EXPECT_EQ(transport->state(), ConnectionOutcome::Connected);

    // A transport dropped without close() still ends TLS cleanly.
    const std::shared_ptr<TLSTransport> deviceEnd = lastAccepted.lock();
    session.reset();
    transport.reset();
    EXPECT_TRUE(eventually([&] {
        server->poll(std::chrono::milliseconds(0));
        return TransportPoll::of(*deviceEnd).ended();
    }));
    EXPECT_EQ(deviceEnd->getFailureReason(), "closed by the peer");
}
