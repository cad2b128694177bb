#include "PythonTls.h"

#include <pybind11/pybind11.h>

#include <utility>

#ifdef CHANLINK_PYTHON_TLS
#include "chanlink/tls/TLSClientTransport.h"
#endif

ReconnectingClient::TransportFactory PythonTls::factory(
    const std::string& host, const std::string& service, const Options& options,
    std::shared_ptr<std::shared_ptr<Transport>> last) {
#ifdef CHANLINK_PYTHON_TLS
    TLSClientSettings settings;
    settings.caFile = options.ca;
    settings.certificateFile = options.cert;
    settings.keyFile = options.key;
    settings.verifyPeer = !options.insecure;
    std::string error;
    auto make = TLSClientTransport::factory(host, service, settings, error);
    if (!make) {
        throw pybind11::value_error(error);
    }
    return [make = std::move(make), last = std::move(last)]() {
        *last = make();
        return *last;
    };
#else
    (void)host, (void)service, (void)options, (void)last;
    throw pybind11::value_error("this chanlink module was built without TLS");
#endif
}

std::string PythonTls::failureReason(const std::shared_ptr<Transport>& transport) {
#ifdef CHANLINK_PYTHON_TLS
    if (const auto tls = std::dynamic_pointer_cast<TLSTransport>(transport)) {
        return tls->getFailureReason();
    }
#else
    (void)transport;
#endif
    return {};
}
