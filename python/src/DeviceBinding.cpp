#include "DeviceBinding.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Arguments.h"
#include "BindingSupport.h"
#include "PythonDevice.h"
#include "chanlink/server/DeviceSettings.h"
#include "chanlink/server/MemoryChannelStore.h"

namespace py = pybind11;
using binding::toBytes;
using binding::withoutGil;

namespace {

// chanlink.Device. Channel sizes are kept here too, so that a wrong set is a
// ValueError at the call rather than a silent no-op in the serving thread.
struct DeviceBinding {
    std::unique_ptr<PythonDevice> core;
    std::map<unsigned int, std::size_t> sizes;
    bool closed = false;

    ~DeviceBinding() {
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

std::unique_ptr<DeviceBinding> makeDevice(const py::handle& channels, const py::handle& port,
                                          const std::string& user, const std::string& password,
                                          const py::handle& maxClients) {
    if (!py::isinstance<py::iterable>(channels)) {
        throw py::type_error("channels must be an iterable of chanlink.Channel");
    }
    auto device = std::make_unique<DeviceBinding>();
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

}  // namespace

void defineDevice(py::module_& m) {
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

    py::class_<DeviceBinding>(
        m, "Device",
        "A simulated device, served from a background thread on 127.0.0.1 and "
        "::1 with the rules of chanlink-device, until closed.")
        .def(py::init(&makeDevice), py::arg("channels"), py::arg("port") = 0,
             py::arg("user") = "admin", py::arg("password") = "secret", py::arg("max_clients") = 4,
             "Starts serving the channels at port (0: a free one, see .port). max_clients: "
             "connections that may be logged in at once. Raises OSError when it cannot listen.")
        .def_property_readonly(
            "port", [](const DeviceBinding& self) { return self.core->getPort(); },
            "The port served.")
        .def("set", &DeviceBinding::set, py::arg("channel"), py::arg("data"),
             "Writes the channel as the device itself (read-only channels too); subscribers "
             "are told. Returns once done.")
        .def("get", &DeviceBinding::get, py::arg("channel"), "The channel's value as bytes.")
        .def("close", &DeviceBinding::close, "Closes every connection and stops serving.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](DeviceBinding& self, const py::args&) { self.close(); });
}
