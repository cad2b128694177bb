#include "chanlink/tls/TLSServerTransport.h"

#include <utility>

TLSServerTransport::TLSServerTransport(std::shared_ptr<TCPTransport> connection,
                                       std::shared_ptr<TLSContext> context,
                                       std::shared_ptr<Receiver<ConnectionOutcome>> receiver)
    : TLSTransport(std::move(receiver)), context(std::move(context)) {
    const bool usable = connection && connection->state() == ConnectionOutcome::Connected;
    reset(std::move(connection));
    if (!this->context || !this->context->isServer()) {
        fail("no TLS server context");
    } else if (!usable) {
        fail("not connected");
    } else {
        startHandshake(*this->context, std::string());
    }
}

TLSServerTransport::~TLSServerTransport() = default;

DeviceSettings::ConnectionWrapper TLSServerTransport::wrapper(std::shared_ptr<TLSContext> context) {
    return [context](std::shared_ptr<TCPTransport> connection) -> std::shared_ptr<Transport> {
        return std::make_shared<TLSServerTransport>(std::move(connection), context);
    };
}
