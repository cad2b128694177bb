#include "ClientBinding.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Arguments.h"
#include "BindingSupport.h"
#include "ChangeWatch.h"
#include "PythonClient.h"
#include "PythonErrors.h"
#include "PythonTls.h"
#include "WatchBinding.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/messages/ReasonCode.h"

namespace py = pybind11;
using binding::channelList;
using binding::describeSeconds;
using binding::raiseIfInterrupted;
using binding::toBytes;
using binding::withoutGil;
using Milliseconds = std::chrono::milliseconds;

namespace {

// chanlink.Client. The callbacks live here, with the GIL; the PythonClient
// only queues the values they receive.
struct ClientBinding {
    std::shared_ptr<PythonClient> core;
    Milliseconds timeout;
    std::map<unsigned int, std::vector<py::object>> callbacks;

    // A failed outcome's reason as the exception the caller sees.
    [[noreturn]] void raiseFailure(unsigned int channel, unsigned char reason) {
        if (reason == ReasonCode::NotConnected) {
            PythonErrors::connectionFailed(
                withoutGil([&] { return core->describeNoConnection(); }));
        }
        if (reason == ReasonCode::ConnectionLost) {
            PythonErrors::connectionFailed("the connection was lost before channel " +
                                           std::to_string(channel) + " was answered");
        }
        // The client closed the connection itself, for a bound the device broke.
        if (reason == ReasonCode::FrameTooLarge || reason == ReasonCode::DeviceNotReading) {
            PythonErrors::connectionFailed(std::string(ReasonCode::describe(reason)) +
                                           ", before channel " + std::to_string(channel) +
                                           " was answered");
        }
        PythonErrors::refused(channel, reason);
    }

    void checkOpen() {
        if (withoutGil([&] { return core->isStopped(); })) {
            PythonErrors::connectionFailed(
                withoutGil([&] { return core->describeNoConnection(); }));
        }
    }

    py::bytes get(const py::handle& channel, const py::handle& timeoutArgument) {
        const unsigned int id = arguments::channelId(channel);
        const Milliseconds wait = arguments::timeout(timeoutArgument, timeout);
        checkOpen();
        const auto outcome = withoutGil([&] { return core->get(id, wait); });
        raiseIfInterrupted();
        if (!outcome) {
            PythonErrors::timeout("no answer for channel " + std::to_string(id) + " within " +
                                  describeSeconds(wait));
        }
        if (!outcome->getSuccess()) {
            raiseFailure(id, outcome->getReasonCode());
        }
        return toBytes(outcome->getData());
    }

    void set(const py::handle& channel, const py::handle& data, const py::handle& timeoutArgument) {
        const unsigned int id = arguments::channelId(channel);
        const std::vector<unsigned char> bytes = arguments::data(data);
        const Milliseconds wait = arguments::timeout(timeoutArgument, timeout);
        checkOpen();
        const auto outcome = withoutGil([&] { return core->set(id, bytes, wait); });
        raiseIfInterrupted();
        if (!outcome) {
            PythonErrors::timeout("no answer to the set of channel " + std::to_string(id) +
                                  " within " + describeSeconds(wait) +
                                  "; it may or may not be applied");
        }
        if (!outcome->getSuccess()) {
            raiseFailure(id, outcome->getReasonCode());
        }
    }

    py::dict getMany(const py::handle& channels, const py::handle& timeoutArgument) {
        const std::vector<unsigned int> ids = channelList(channels);
        const Milliseconds wait = arguments::timeout(timeoutArgument, timeout);
        checkOpen();
        py::dict values;
        if (ids.empty()) {
            return values;
        }
        const auto outcomes = withoutGil([&] { return core->getMany(ids, wait); });
        raiseIfInterrupted();
        if (!outcomes) {
            raiseFailure(ids.front(), ReasonCode::NotConnected);
        }
        for (unsigned int id : ids) {
            const auto found = outcomes->find(id);
            if (found == outcomes->end()) {
                PythonErrors::timeout("no answer for channel " + std::to_string(id) + " within " +
                                      describeSeconds(wait));
            }
            const GetOutcome& outcome = found->second;
            const unsigned char reason = outcome.getReasonCode();
            if (ReasonCode::madeLocally(reason)) {
                raiseFailure(id, reason);  // no device answered: not a refusal to list
            }
            values[py::int_(id)] = outcome.getSuccess() ? py::object(toBytes(outcome.getData()))
                                                        : PythonErrors::makeRefused(id, reason);
        }
        return values;
    }

    void subscribe(const py::handle& channel, const py::object& callback) {
        const unsigned int id = arguments::channelId(channel);
        if (!PyCallable_Check(callback.ptr())) {
            throw py::type_error("callback must be callable");
        }
        checkOpen();
        callbacks[id].push_back(callback);
        withoutGil([&] { core->subscribe(id); });
    }

    void unsubscribe(const py::handle& channel, const py::object& callback) {
        const unsigned int id = arguments::channelId(channel);
        const auto found = callbacks.find(id);
        if (found == callbacks.end()) {
            return;
        }
        auto& list = found->second;
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [&](const py::object& each) {
                                      return callback.is_none() || each.equal(callback);
                                  }),
                   list.end());
        if (list.empty()) {
            callbacks.erase(found);
            withoutGil([&] { core->unsubscribe(id); });
        }
    }

    // Callbacks run here, with the GIL. One that raises ends the delivery:
    // the values not yet delivered go back to the queue and the exception
    // reaches the caller.
    int poll(const py::handle& timeoutArgument) {
        const Milliseconds wait = arguments::timeout(timeoutArgument, Milliseconds(0));
        checkOpen();
        auto values = withoutGil([&] { return core->poll(wait); });
        int delivered = 0;
        while (!values.empty()) {
            const GetOutcome value = std::move(values.front());
            values.pop_front();
            const unsigned int channel = value.getChannelId();
            const auto found = callbacks.find(channel);
            if (found == callbacks.end()) {
                continue;
            }
            const std::vector<py::object> receivers = found->second;  // they may unsubscribe
            const py::bytes data = toBytes(value.getData());
            try {
                for (const py::object& callback : receivers) {
                    callback(channel, data);
                }
            } catch (py::error_already_set&) {
                withoutGil([&] { core->requeue(values); });
                throw;
            }
            ++delivered;
        }
        raiseIfInterrupted();
        return delivered;
    }
};

// The optional path arguments of TLS: None, or a string.
std::string optionalPath(const py::handle& value, const char* name) {
    if (value.is_none()) {
        return {};
    }
    if (!py::isinstance<py::str>(value)) {
        throw py::type_error(std::string(name) + " must be a str path or None");
    }
    return value.cast<std::string>();
}

// The transports of a client: TCP, or TLS when asked for. The last TLS
// transport made is kept so that a failed handshake can say why.
ReconnectingClient::TransportFactory transportFactory(
    const std::string& host, const std::string& service, bool tls, const py::handle& ca,
    const py::handle& cert, const py::handle& key, bool insecure,
    std::shared_ptr<std::shared_ptr<Transport>> last) {
    const PythonTls::Options options{optionalPath(ca, "ca"), optionalPath(cert, "cert"),
                                     optionalPath(key, "key"), insecure};
    if (!tls) {
        if (!options.ca.empty() || !options.cert.empty() || !options.key.empty() || insecure) {
            throw py::value_error("ca, cert, key and insecure need tls=True");
        }
        return ReconnectingClient::tcpFactory(host, service);
    }
    return PythonTls::factory(host, service, options, std::move(last));
}

std::unique_ptr<ClientBinding> makeClient(const std::string& host, const py::handle& port,
                                          const std::string& user, const std::string& password,
                                          const py::handle& timeout, bool reconnect,
                                          const py::handle& maxFrame, bool tls,
                                          const py::handle& ca, const py::handle& cert,
                                          const py::handle& key, bool insecure) {
    const std::string service = std::to_string(arguments::integer(port, "port", 1, 65535));
    const Milliseconds wait = arguments::timeout(timeout, Milliseconds::max());
    const auto frameLimit = arguments::integer(maxFrame, "max_frame", 0, SIZE_MAX);
    auto last = std::make_shared<std::shared_ptr<Transport>>();
    auto factory = transportFactory(host, service, tls, ca, cert, key, insecure, last);
    auto client = std::make_unique<ClientBinding>();
    client->timeout = wait;
    client->core =
        std::make_shared<PythonClient>(host + ":" + service, std::move(factory), user, password,
                                       reconnect, static_cast<std::size_t>(frameLimit));
    const auto result = withoutGil([&] { return client->core->connect(wait); });
    raiseIfInterrupted();
    const std::string address = host + ":" + service;
    switch (result) {
        case PythonClient::ConnectResult::Ready:
        case PythonClient::ConnectResult::Interrupted:
            break;
        case PythonClient::ConnectResult::LoginRefused:
            PythonErrors::loginRefused(client->core->loginResult());
        case PythonClient::ConnectResult::NoLoginAnswer:
            PythonErrors::timeout("no answer to the login from " + address + " within " +
                                  describeSeconds(wait));
        case PythonClient::ConnectResult::NoConnection: {
            const std::string reason = PythonTls::failureReason(*last);
            PythonErrors::connectionFailed(
                reason.empty() ? "cannot connect to " + address + " within " + describeSeconds(wait)
                               : "cannot connect to " + address + ": " + reason);
        }
    }
    return client;
}

}  // namespace

void defineClient(py::module_& m) {
    py::class_<ClientBinding>(
        m, "Client",
        "A connection to one device, kept alive: lost connections are made again "
        "and subscriptions renewed by themselves. Calls block until answered or "
        "timed out, without holding the GIL. Threads sharing a client take turns.")
        .def(py::init(&makeClient), py::arg("host"), py::arg("port"), py::arg("user"),
             py::arg("password"), py::kw_only(), py::arg("timeout") = 5.0,
             py::arg("reconnect") = true,
             py::arg("max_frame") = SessionWaiter::DefaultMaxUndecodedBytes, py::arg("tls") = false,
             py::arg("ca") = py::none(), py::arg("cert") = py::none(), py::arg("key") = py::none(),
             py::arg("insecure") = false,
             "Connects and logs in within timeout seconds (also the default of every call; "
             "math.inf for no limit). Raises LoginRefused, Timeout (the login was not answered) "
             "or ConnectionFailed. reconnect=False ends the client at the first lost connection. "
             "max_frame: most bytes the device may send in one frame before the connection is "
             "dropped (0: no bound). tls=True speaks TLS, verifying the device against the "
             "system's certificates or the ca file (insecure=True skips that); cert and key "
             "are the client's own for mutual TLS.")
        .def("get", &ClientBinding::get, py::arg("channel"), py::arg("timeout") = py::none(),
             "The channel's value as bytes. Raises Refused, Timeout or ConnectionFailed.")
        .def("get_many", &ClientBinding::getMany, py::arg("channels"),
             py::arg("timeout") = py::none(),
             "Values of several channels, asked for together: a dict from channel id to bytes, "
             "or to a Refused exception for a refused channel. Raises Timeout or "
             "ConnectionFailed.")
        .def("set", &ClientBinding::set, py::arg("channel"), py::arg("data"),
             py::arg("timeout") = py::none(),
             "Writes bytes to the channel and waits for the device's answer. Raises Refused, "
             "Timeout (then the value may or may not have been applied) or ConnectionFailed.")
        .def("subscribe", &ClientBinding::subscribe, py::arg("channel"), py::arg("callback"),
             "Calls callback(channel, value) inside poll() for every value the device sends for "
             "the channel, across reconnects.")
        .def("unsubscribe", &ClientBinding::unsubscribe, py::arg("channel"),
             py::arg("callback") = py::none(),
             "Removes the callback (every callback of the channel when None).")
        .def("poll", &ClientBinding::poll, py::arg("timeout") = 0.0,
             "Waits up to timeout seconds for values of subscribed channels, calls their "
             "callbacks and returns how many values were delivered. An exception raised by a "
             "callback propagates from here; undelivered values wait for the next poll().")
        .def(
            "watch",
            [](ClientBinding& self, const py::handle& channels, const py::handle& count,
               const py::handle& duration) {
                const std::vector<unsigned int> ids = channelList(channels);
                std::optional<std::size_t> changes;
                if (!count.is_none()) {
                    changes = arguments::integer(count, "count", 0, SIZE_MAX);
                }
                const Milliseconds wait = arguments::timeout(duration, Milliseconds::max());
                self.checkOpen();
                auto watch = std::make_unique<WatchBinding>();
                watch->core = withoutGil(
                    [&] { return std::make_unique<ChangeWatch>(self.core, ids, changes, wait); });
                return watch;
            },
            py::arg("channels"), py::arg("count") = py::none(), py::arg("seconds") = py::none(),
            "An iterator of Change(channel, previous, value) for the channels, starting with "
            "each channel's current value (previous None). A value equal to the last one is "
            "no change. Ends after count changes or seconds seconds, whichever comes first "
            "(None: no limit).")
        .def(
            "close", [](ClientBinding& self) { withoutGil([&] { self.core->close(); }); },
            "Closes the connection; further calls raise ConnectionFailed.")
        .def_property_readonly(
            "state",
            [](ClientBinding& self) { return withoutGil([&] { return self.core->stateName(); }); },
            "'Ready', 'Connecting', 'LoggingIn', 'WaitingToReconnect' or 'Stopped'.")
        .def_property_readonly(
            "dropped_values",
            [](ClientBinding& self) {
                return withoutGil([&] { return self.core->droppedValues(); });
            },
            "Values of subscribed channels dropped because more than 100000 waited for poll(); "
            "the latest value of each channel is always kept.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](ClientBinding& self, const py::args&) { withoutGil([&] { self.core->close(); }); });
}
