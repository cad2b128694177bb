// The chanlink Python module: the library's ReconnectingClient and
// DeviceServer with a blocking, Pythonic face. Every wait happens in C++
// without the GIL; nothing on the wire is done in Python.
#include <pybind11/pybind11.h>

#include <climits>
#include <string>

#include "Arguments.h"
#include "BindingSupport.h"
#include "ClientBinding.h"
#include "DeviceBinding.h"
#include "PythonErrors.h"
#include "ReferenceLoop.h"
#include "WatchBinding.h"
#include "chanlink/messages/ReasonCode.h"

namespace py = pybind11;

PYBIND11_MODULE(_chanlink, m) {
    m.doc() = "chanlink: a client and a simulated device for chanlink devices.";
    m.attr("__version__") = CHANLINK_VERSION;
    PythonErrors::define(m);

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
            return binding::withoutGil(
                [&] { return referenceGetLoop(host, service, user, password, id, gets); });
        },
        py::arg("host"), py::arg("port"), py::arg("user"), py::arg("password"), py::arg("channel"),
        py::arg("count"),
        "For the benchmark: seconds count gets take in C++ (the same calls as Client.get), "
        "-1 on failure.");

    defineClient(m);
    WatchBinding::define(m);
    defineDevice(m);

    for (const char* name : {"Client", "Watch", "Channel", "Device"}) {
        m.attr(name).attr("__module__") = "chanlink";
    }
}
