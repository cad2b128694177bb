// chanlink_tls end to end: a ClientSession over TLSClientTransport against a
// DeviceServer that wraps its connections in TLSServerTransport, both driven
// from this thread. Certificates are made for the run by make-certs.sh.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "chanlink/client/ClientSessionBuilder.h"
#include "chanlink/client/ReconnectingClient.h"
#include "chanlink/server/DeviceServer.h"
#include "chanlink/server/MemoryChannelStore.h"
#include "chanlink/tls.h"
#include "support/Eventually.h"
#include "support/ManualClock.h"
#include "support/RawClient.h"
#include "support/RecordingReceiver.h"

using testing_support::eventually;
using testing_support::ManualClock;
using testing_support::RawClient;
using testing_support::RecordingReceiver;
using Bytes = std::vector<unsigned char>;

namespace {

std::string certificates;

class TLSTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/chanlink-tls-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        certificates = pattern;
        ASSERT_EQ(
            std::system((std::string("bash " CHANLINK_MAKE_CERTS " ") + certificates).c_str()), 0);
    }
    static void TearDownTestSuite() {
        [[maybe_unused]] const int ignored = std::system(("rm -rf " + certificates).c_str());
    }
    static std::string file(const std::string& name) { return certificates + "/" + name; }

    // A device serving TLS with the named certificate; mutual: asks clients
    // for a certificate issued by ca.
    void startDevice(const std::string& certificate = "device", bool mutual = false) {
        TLSServerSettings tls{file(certificate + ".pem"), file(certificate + ".key"),
                              mutual ? file("ca.pem") : ""};
        std::string error;
        auto context = TLSContext::forServer(tls, error);
        ASSERT_TRUE(context) << error;
        store->addChannel(1, {0, 0, 0, 0}, false);
        settings.username = "admin";
        settings.password = "secret";
        settings.wrapConnection = TLSServerTransport::wrapper(context);
        server = std::make_unique<DeviceServer>(store, settings);
        ASSERT_TRUE(server->listen("0", "127.0.0.1"));
    }

    std::shared_ptr<TLSClientTransport> connect(TLSClientSettings tls) {
        auto transport = std::make_shared<TLSClientTransport>(
            "127.0.0.1", server->getListeningService(), nullptr, tls);
        transport->connect();
        return transport;
    }

    // Logs in over transport; false once the transport has failed or closed.
    bool login(const std::shared_ptr<TLSClientTransport>& transport) {
        session = ClientSessionBuilder()
                      .setTransport(transport)
                      .setUsername("admin")
                      .setPassword("secret")
                      .build();
        session->initiateLogin();
        return pumpUntil([&] {
                   return session->getLoginState().loggedIn() ||
                          TransportPoll::of(*transport).ended();
               }) &&
               session->getLoginState().loggedIn();
    }

    template <typename Done>
    bool pumpUntil(Done done) {
        return eventually([&] {
            server->poll(std::chrono::milliseconds(0));
            if (session) {
                session->tick();
            }
            return done();
        });
    }

    TLSClientSettings trusting() {
        TLSClientSettings tls;
        tls.caFile = file("ca.pem");
        return tls;
    }

    std::shared_ptr<MemoryChannelStore> store = std::make_shared<MemoryChannelStore>();
    DeviceSettings settings;
    std::unique_ptr<DeviceServer> server;
    std::shared_ptr<ClientSession> session;
};

}  // namespace

TEST_F(TLSTest, SessionLogsInGetsSetsAndSubscribesOverTls) {
    startDevice();
    auto transport = connect(trusting());
    ASSERT_TRUE(login(transport)) << transport->getFailureReason();

    auto set = std::make_shared<RecordingReceiver<SetOutcome>>();
    auto pushed = std::make_shared<RecordingReceiver<GetOutcome>>();
    auto got = std::make_shared<RecordingReceiver<GetOutcome>>();
    session->addSubscription(1, pushed);
    session->setChannel(1, {1, 2, 3, 4}, set);
    ASSERT_TRUE(pumpUntil([&] { return set->count() == 1 && pushed->count() >= 2; }));
    session->requestChannel(1, got);
    ASSERT_TRUE(pumpUntil([&] { return got->count() == 1; }));
    EXPECT_TRUE(set->received().at(0).getSuccess());
    EXPECT_EQ(got->received()[0].getData(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(pushed->received().back().getData(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(transport->state(), ConnectionOutcome::Connected);
}

TEST_F(TLSTest, DeviceIsVerifiedAndClientCertificatesAreRequiredWhenAskedFor) {
    struct Case {
        const char* name;
        const char* deviceCertificate;
        bool mutual;
        const char* caFile;
        const char* serverName;
        bool clientCertificate;
        const char* refusal;  // empty: logs in
    };
    const Case cases[] = {
        {"trusted", "device", false, "ca.pem", "", false, ""},
        {"by name", "device", false, "ca.pem", "localhost", false, ""},
        {"wrong CA", "device", false, "otherca.pem", "", false,
         "certificate verify failed: unable to get local issuer certificate"},
        {"expired", "expired", false, "ca.pem", "", false,
         "certificate verify failed: certificate has expired"},
        {"wrong name", "device", false, "ca.pem", "other.example", false,
         "certificate verify failed: hostname mismatch"},
        {"mutual", "device", true, "ca.pem", "", true, ""},
        {"mutual without certificate", "device", true, "ca.pem", "", false, "certificate required"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        session.reset();
        store = std::make_shared<MemoryChannelStore>();
        startDevice(c.deviceCertificate, c.mutual);
        TLSClientSettings tls;
        tls.caFile = file(c.caFile);
        tls.serverName = c.serverName;
        if (c.clientCertificate) {
            tls.certificateFile = file("client.pem");
            tls.keyFile = file("client.key");
        }
        auto transport = connect(tls);
        const bool loggedIn = login(transport);
        if (std::string(c.refusal).empty()) {
            EXPECT_TRUE(loggedIn) << transport->getFailureReason();
        } else {
            EXPECT_FALSE(loggedIn);
            EXPECT_NE(transport->getFailureReason().find(c.refusal), std::string::npos)
                << transport->getFailureReason();
        }
    }
}

TEST_F(TLSTest, UnfinishedHandshakesCountAsPendingAndTimeOut) {
    settings.maxPending = 1;
    startDevice();
    auto clock = std::make_shared<ManualClock>();
    server->setClock(clock);
    RawClient silent("127.0.0.1", server->getListeningService());
    ASSERT_TRUE(pumpUntil([&] {
        silent.pump();
        return server->connectionCount() == 1;
    }));
    RawClient crowding("127.0.0.1", server->getListeningService());
    EXPECT_TRUE(pumpUntil([&] {
        crowding.pump();
        return crowding.closed();
    }));

    clock->advance(settings.loginTimeout);
    EXPECT_TRUE(pumpUntil([&] {
        silent.pump();
        return silent.closed() && server->connectionCount() == 0;
    }));
}

TEST_F(TLSTest, ReconnectingClientComesBackOverTls) {
    startDevice();
    const std::string port = server->getListeningService();
    std::string error;
    auto factory = TLSClientTransport::factory("127.0.0.1", port, trusting(), error);
    ASSERT_TRUE(factory) << error;
    auto clock = std::make_shared<ManualClock>();
    ReconnectingClient client(factory, "admin", "secret", clock);
    auto values = std::make_shared<RecordingReceiver<GetOutcome>>();
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

    server = std::make_unique<DeviceServer>(store, settings);  // the device restarts
    ASSERT_TRUE(server->listen(port, "127.0.0.1"));
    ASSERT_TRUE(until([&] { return client.getState() == ReconnectingClient::WaitingToReconnect; }));
    store->update(1, {9, 9, 9, 9});
    clock->advance(client.getRetryDelay());
    ASSERT_TRUE(until([&] { return values->count() == 2; }));
    EXPECT_EQ(values->received().back().getData(), (Bytes{9, 9, 9, 9}));
}
