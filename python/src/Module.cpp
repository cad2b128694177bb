// The chanlink Python module: the library's ReconnectingClient and
// DeviceServer with a blocking, Pythonic face. Every wait happens in C++
// without the GIL; nothing on the wire is done in Python.
#include <pybind11/pybind11.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Arguments.h"
#include "ChangeWatch.h"
#include "PythonClient.h"
#include "PythonDevice.h"
#include "PythonErrors.h"
#include "ReferenceLoop.h"
#include "chanlink/client/SessionWaiter.h"
#include "chanlink/messages/ReasonCode.h"
#include "chanlink/server/MemoryChannelStore.h"

namespace py = pybind11;
using Milliseconds = std::chrono::milliseconds;

namespace {

// collections.namedtuple("Change", "channel previous value"), made at import.
PyObject* changeType = nullptr;

// Runs f without the GIL: for every call into PythonClient, PythonDevice and
// ChangeWatch, which wait and lock.
template <typename F>
auto withoutGil(F&& f) {
    const py::gil_scoped_release release;
    return f();
}

// A signal handler (Ctrl-C) raised during a wait.
void raiseIfInterrupted() {
    if (PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
}

py::bytes toBytes(const std::vector<unsigned char>& data) {
    return py::bytes(reinterpret_cast<const char*>(data.data()), data.size());
}

std::string seconds(Milliseconds timeout) {
    return py::str("{:g} s")
        .format(static_cast<double>(timeout.count()) / 1000)
        .cast<std::string>();
}

std::vector<unsigned int> channelList(const py::handle& channels) {
    if (!py::isinstance<py::iterable>(channels) || py::isinstance<py::str>(channels)) {
        throw py::type_error("channels must be an iterable of channel ids");
    }
    std::vector<unsigned int> ids;
    for (const py::handle id : channels) {
        ids.push_back(arguments::channelId(id));
    }
    return ids;
}

struct Client {
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
                                  seconds(wait));
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
                                  " within " + seconds(wait) + "; it may or may not be applied");
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
                                      seconds(wait));
            }
            const GetOutcome& outcome = found->second;
            const unsigned char reason = outcome.getReasonCode();
            if (reason == ReasonCode::NotConnected || reason == ReasonCode::ConnectionLost) {
                raiseFailure(id, reason);
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
            const PythonClient::Pushed value = std::move(values.front());
            values.pop_front();
            const auto found = callbacks.find(value.channel);
            if (found == callbacks.end()) {
                continue;
            }
            const std::vector<py::object> receivers = found->second;  // they may unsubscribe
            const py::bytes data = toBytes(value.data);
            try {
                for (const py::object& callback : receivers) {
                    callback(value.channel, data);
                }
            } catch (py::error_already_set&) {
                withoutGil([&] { core->requeue(std::move(values)); });
                throw;
            }
            ++delivered;
        }
        raiseIfInterrupted();
        return delivered;
    }
};

struct Watch {
    std::unique_ptr<ChangeWatch> core;

    ~Watch() {
        withoutGil([&] { core.reset(); });
    }

    py::object next() {
        const auto change = withoutGil([&] { return core->next(); });
        raiseIfInterrupted();
        if (!change) {
            throw py::stop_iteration();
        }
        const py::object previous =
            change->previous ? py::object(toBytes(*change->previous)) : py::object(py::none());
        return py::handle(changeType)(change->channel, previous, toBytes(change->value));
    }
};

struct Device {
    std::unique_ptr<PythonDevice> core;
    std::map<unsigned int, std::size_t> sizes;
    bool closed = false;

    ~Device() {
        withoutGil([&] { core.reset(); });
    }

    unsigned int knownChannel(const py::handle& channel) {
        if (closed) {
            throw py::value_error("the device is closed");
        }
        const unsigned int id = arguments::channelId(channel);
        if (sizes.count(id) == 0) {
            throw py::value_error("the device has no channel " + std::to_string(id));
        }
        return id;
    }

    void set(const py::handle& channel, const py::handle& data) {
        const unsigned int id = knownChannel(channel);
        const std::vector<unsigned char> bytes = arguments::data(data);
        if (bytes.size() != sizes[id]) {
            throw py::value_error("channel " + std::to_string(id) + " holds " +
                                  std::to_string(sizes[id]) + " bytes, not " +
                                  std::to_string(bytes.size()));
        }
        withoutGil([&] { return core->update(id, bytes); });
    }

    py::bytes get(const py::handle& channel) {
        const unsigned int id = knownChannel(channel);
        return toBytes(
            withoutGil([&] { return core->value(id); }).value_or(std::vector<unsigned char>()));
    }

    void close() {
        closed = true;
        withoutGil([&] { core->close(); });
    }
};

PythonDevice::Channel makeChannel(const py::handle& id, const py::handle& size, bool readOnly,
                                  const py::handle& initial, std::string name) {
    PythonDevice::Channel channel{arguments::channelId(id), {}, readOnly, std::move(name)};
    const auto bytes = arguments::integer(size, "size", 1, MemoryChannelStore::MaxChannelSize);
    if (initial.is_none()) {
        channel.initial.assign(bytes, 0);
    } else {
        channel.initial = arguments::data(initial, "initial");
        if (channel.initial.size() != bytes) {
            throw py::value_error("initial must be " + std::to_string(bytes) +
                                  " bytes (size), not " + std::to_string(channel.initial.size()));
        }
    }
    return channel;
}

std::unique_ptr<Device> makeDevice(const py::handle& channels, const py::handle& port,
                                   const std::string& user, const std::string& password,
                                   const py::handle& maxClients) {
    if (!py::isinstance<py::iterable>(channels)) {
        throw py::type_error("channels must be an iterable of chanlink.Channel");
    }
    auto device = std::make_unique<Device>();
    std::vector<PythonDevice::Channel> table;
    for (const py::handle item : channels) {
        if (!py::isinstance<PythonDevice::Channel>(item)) {
            throw py::type_error("channels must hold chanlink.Channel, not " +
                                 std::string(Py_TYPE(item.ptr())->tp_name));
        }
        table.push_back(item.cast<PythonDevice::Channel>());
        if (!device->sizes.emplace(table.back().id, table.back().initial.size()).second) {
            throw py::value_error("channel " + std::to_string(table.back().id) + " is given twice");
        }
    }
    const auto listenPort = static_cast<unsigned short>(arguments::integer(port, "port", 0, 65535));
    DeviceSettings settings;
    settings.username = user;
    settings.password = password;
    settings.maxLoggedIn = arguments::integer(maxClients, "max_clients", 0, 1000000);
    try {
        device->core =
            withoutGil([&] { return std::make_unique<PythonDevice>(table, settings, listenPort); });
    } catch (const std::runtime_error& error) {
        PyErr_SetString(PyExc_OSError, error.what());
        throw py::error_already_set();
    }
    return device;
}

std::unique_ptr<Client> makeClient(const std::string& host, const py::handle& port,
                                   const std::string& user, const std::string& password,
                                   const py::handle& timeout, bool reconnect,
                                   const py::handle& maxFrame) {
    const std::string service = std::to_string(arguments::integer(port, "port", 1, 65535));
    const Milliseconds wait = arguments::timeout(timeout, Milliseconds::max());
    const auto frameLimit = arguments::integer(maxFrame, "max_frame", 0, SIZE_MAX);
    auto client = std::make_unique<Client>();
    client->timeout = wait;
    client->core = std::make_shared<PythonClient>(host, service, user, password, reconnect,
                                                  static_cast<std::size_t>(frameLimit));
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
                                  seconds(wait));
        case PythonClient::ConnectResult::NoConnection:
            PythonErrors::connectionFailed("cannot connect to " + address + " within " +
                                           seconds(wait));
    }
    return client;
}

}  // namespace

PYBIND11_MODULE(_chanlink, m) {
    m.doc() = "chanlink: a client and a simulated device for chanlink devices.";
    m.attr("__version__") = CHANLINK_VERSION;
    PythonErrors::define(m);
    changeType =
        py::module_::import("collections")
            .attr("namedtuple")("Change", "channel previous value", py::arg("module") = "chanlink")
            .release()
            .ptr();
    m.add_object("Change", py::handle(changeType));
    py::handle(changeType).attr("__doc__") =
        "One change of a watched channel: channel id, previous value (None for the first "
        "value seen) and new value, as bytes.";

    m.def(
        "reason_name",
        [](const py::handle& code) -> py::object {
            const char* name = ReasonCode::name(
                static_cast<unsigned char>(arguments::integer(code, "code", 0, 255)));
            return name != nullptr ? py::object(py::str(name)) : py::object(py::none());
        },
        py::arg("code"),
        "The library's name of a reason code (17 -> 'UnknownChannel'); None for a device's "
        "own code.");

    m.def(
        "_reference_get_loop",
        [](const std::string& host, const py::handle& port, const std::string& user,
           const std::string& password, const py::handle& channel, const py::handle& count) {
            const std::string service = std::to_string(arguments::integer(port, "port", 1, 65535));
            const unsigned int id = arguments::channelId(channel);
            const auto gets = arguments::integer(count, "count", 0, ULONG_MAX);
            return withoutGil(
                [&] { return referenceGetLoop(host, service, user, password, id, gets); });
        },
        py::arg("host"), py::arg("port"), py::arg("user"), py::arg("password"), py::arg("channel"),
        py::arg("count"),
        "For the benchmark: seconds count gets take in C++ (the same calls as Client.get), "
        "-1 on failure.");

    py::class_<Client>(m, "Client",
                       "A connection to one device, kept alive: lost connections are made again "
                       "and subscriptions renewed by themselves. Calls block until answered or "
                       "timed out, without holding the GIL. Threads sharing a client take turns.")
        .def(py::init(&makeClient), py::arg("host"), py::arg("port"), py::arg("user"),
             py::arg("password"), py::kw_only(), py::arg("timeout") = 5.0,
             py::arg("reconnect") = true,
             py::arg("max_frame") = SessionWaiter::DefaultMaxUndecodedBytes,
             "Connects and logs in within timeout seconds (also the default of every call; "
             "math.inf for no limit). Raises LoginRefused, Timeout (the login was not answered) "
             "or ConnectionFailed. reconnect=False ends the client at the first lost connection. "
             "max_frame: most bytes the device may send in one frame before the connection is "
             "dropped (0: no bound).")
        .def("get", &Client::get, py::arg("channel"), py::arg("timeout") = py::none(),
             "The channel's value as bytes. Raises Refused, Timeout or ConnectionFailed.")
        .def("get_many", &Client::getMany, py::arg("channels"), py::arg("timeout") = py::none(),
             "Values of several channels, asked for together: a dict from channel id to bytes, "
             "or to a Refused exception for a refused channel. Raises Timeout or "
             "ConnectionFailed.")
        .def("set", &Client::set, py::arg("channel"), py::arg("data"),
             py::arg("timeout") = py::none(),
             "Writes bytes to the channel and waits for the device's answer. Raises Refused, "
             "Timeout (then the value may or may not have been applied) or ConnectionFailed.")
        .def("subscribe", &Client::subscribe, py::arg("channel"), py::arg("callback"),
             "Calls callback(channel, value) inside poll() for every value the device sends for "
             "the channel, across reconnects.")
        .def("unsubscribe", &Client::unsubscribe, py::arg("channel"),
             py::arg("callback") = py::none(),
             "Removes the callback (every callback of the channel when None).")
        .def("poll", &Client::poll, py::arg("timeout") = 0.0,
             "Waits up to timeout seconds for values of subscribed channels, calls their "
             "callbacks and returns how many values were delivered. An exception raised by a "
             "callback propagates from here; undelivered values wait for the next poll().")
        .def(
            "watch",
            [](Client& self, const py::handle& channels, const py::handle& count,
               const py::handle& duration) {
                const std::vector<unsigned int> ids = channelList(channels);
                std::optional<std::size_t> changes;
                if (!count.is_none()) {
                    changes = arguments::integer(count, "count", 0, SIZE_MAX);
                }
                const Milliseconds wait = arguments::timeout(duration, Milliseconds::max());
                self.checkOpen();
                auto watch = std::make_unique<Watch>();
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
            "close", [](Client& self) { withoutGil([&] { self.core->close(); }); },
            "Closes the connection; further calls raise ConnectionFailed.")
        .def_property_readonly(
            "state",
            [](Client& self) { return withoutGil([&] { return self.core->stateName(); }); },
            "'Ready', 'Connecting', 'LoggingIn', 'WaitingToReconnect' or 'Stopped'.")
        .def_property_readonly(
            "dropped_values",
            [](Client& self) { return withoutGil([&] { return self.core->droppedValues(); }); },
            "Subscribed values dropped because more than 100000 waited for poll().")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](Client& self, const py::args&) { withoutGil([&] { self.core->close(); }); });

    py::class_<Watch>(m, "Watch", "The iterator Client.watch() returns.")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &Watch::next)
        .def(
            "close", [](Watch& self) { withoutGil([&] { self.core->close(); }); },
            "Ends the watch and its subscriptions.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](Watch& self, const py::args&) { withoutGil([&] { self.core->close(); }); });

    py::class_<PythonDevice::Channel>(m, "Channel", "One channel of a Device.")
        .def(py::init(&makeChannel), py::arg("id"), py::arg("size") = 4,
             py::arg("read_only") = false, py::arg("initial") = py::none(), py::arg("name") = "",
             "A channel of size bytes (1 to 65535), initially initial (size bytes) or zeros. "
             "Clients cannot set a read_only channel; the device itself can.")
        .def_readonly("id", &PythonDevice::Channel::id)
        .def_property_readonly("size",
                               [](const PythonDevice::Channel& c) { return c.initial.size(); })
        .def_readonly("read_only", &PythonDevice::Channel::readOnly)
        .def_property_readonly("initial",
                               [](const PythonDevice::Channel& c) { return toBytes(c.initial); })
        .def_readonly("name", &PythonDevice::Channel::name)
        .def("__repr__", [](const PythonDevice::Channel& c) {
            return py::str("Channel({}, size={}, read_only={}, initial={!r}, name={!r})")
                .format(c.id, c.initial.size(), c.readOnly ? "True" : "False", toBytes(c.initial),
                        c.name);
        });

    py::class_<Device>(m, "Device",
                       "A simulated device, served from a background thread on 127.0.0.1 and "
                       "::1 with the rules of chanlink-device, until closed.")
        .def(py::init(&makeDevice), py::arg("channels"), py::arg("port") = 0,
             py::arg("user") = "admin", py::arg("password") = "secret", py::arg("max_clients") = 4,
             "Starts serving the channels at port (0: a free one, see .port). max_clients: "
             "connections that may be logged in at once. Raises OSError when it cannot listen.")
        .def_property_readonly(
            "port", [](const Device& self) { return self.core->getPort(); }, "The port served.")
        .def("set", &Device::set, py::arg("channel"), py::arg("data"),
             "Writes the channel as the device itself (read-only channels too); subscribers "
             "are told. Returns once done.")
        .def("get", &Device::get, py::arg("channel"), "The channel's value as bytes.")
        .def("close", &Device::close, "Closes every connection and stops serving.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Device& self, const py::args&) { self.close(); });

    for (const char* name : {"Client", "Watch", "Channel", "Device"}) {
        m.attr(name).attr("__module__") = "chanlink";
    }
}
