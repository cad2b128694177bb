#include "chanlink/tls/TLSClientTransport.h"

#include <utility>

#include "chanlink/transport/TCPClientTransport.h"

TLSClientTransport::TLSClientTransport(const std::string& host, const std::string& service,
                                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver,
                                       const TLSClientSettings& settings)
    : TLSTransport(std::move(receiver)),
      host(host),
      service(service),
      serverName(settings.serverName),
      context(TLSContext::forClient(settings, contextError)) {}

TLSClientTransport::TLSClientTransport(const std::string& host, const std::string& service,
                                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver,
                                       std::shared_ptr<TLSContext> context,
                                       const std::string& serverName)
    : TLSTransport(std::move(receiver)),
      host(host),
      service(service),
      serverName(serverName),
      context(std::move(context)) {
    if (!this->context || this->context->isServer()) {
        this->context.reset();
        contextError = "no TLS client context";
    }
}

TLSClientTransport::~TLSClientTransport() = default;

void TLSClientTransport::connect() {
    if (state() == ConnectionOutcome::Connecting || state() == ConnectionOutcome::Connected) {
        return;
    }
    tcp = std::make_shared<TCPClientTransport>(host, service, nullptr);
    reset(tcp);
    if (!context) {
        fail(contextError);
        return;
    }
    tcp->connect();
    progressState(ConnectionOutcome::Connecting);
    progress();
}

void TLSClientTransport::progress() {
    if (!tcp || state() != ConnectionOutcome::Connecting) {
        return;
    }
    if (handshakeStarted()) {
        TLSTransport::progress();
        return;
    }
    if (tcp->state() == ConnectionOutcome::Connecting) {
        tcp->tick();
    }
    if (tcp->state() == ConnectionOutcome::Connected) {
        startHandshake(*context, serverName.empty() ? host : serverName);
        TLSTransport::progress();
    } else if (tcp->state() != ConnectionOutcome::Connecting) {
        fail("cannot connect to " + host + " port " + service);
    }
}

std::function<std::shared_ptr<Transport>()> TLSClientTransport::factory(
    const std::string& host, const std::string& service, const TLSClientSettings& settings,
    std::string& error) {
    std::shared_ptr<TLSContext> context = TLSContext::forClient(settings, error);
    if (!context) {
        return nullptr;
    }
    const std::string serverName = settings.serverName;
    return [host, service, context, serverName]() -> std::shared_ptr<Transport> {
        auto transport =
            std::make_shared<TLSClientTransport>(host, service, nullptr, context, serverName);
        transport->connect();
        return transport;
    };
}
