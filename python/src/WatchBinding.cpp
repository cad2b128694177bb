#include "WatchBinding.h"

#include "BindingSupport.h"

namespace py = pybind11;
using binding::raiseIfInterrupted;
using binding::toBytes;
using binding::withoutGil;

namespace {

// collections.namedtuple("Change", "channel previous value"), made at import
// and kept for the life of the process.
PyObject* changeType = nullptr;

}  // namespace

WatchBinding::~WatchBinding() {
    withoutGil([&] { core.reset(); });
}

py::object WatchBinding::next() {
    const auto change = withoutGil([&] { return core->next(); });
    raiseIfInterrupted();
    if (!change) {
        throw py::stop_iteration();
    }
    const py::object previous =
        change->previous ? py::object(toBytes(*change->previous)) : py::object(py::none());
    return py::handle(changeType)(change->channel, previous, toBytes(change->value));
}

void WatchBinding::define(py::module_& m) {
    changeType =
        py::module_::import("collections")
            .attr("namedtuple")("Change", "channel previous value", py::arg("module") = "chanlink")
            .release()
            .ptr();
    m.add_object("Change", py::handle(changeType));
    py::handle(changeType).attr("__doc__") =
        "One change of a watched channel: channel id, previous value (None for the first "
        "value seen) and new value, as bytes.";

    py::class_<WatchBinding>(m, "Watch", "The iterator Client.watch() returns.")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &WatchBinding::next)
        .def(
            "close", [](WatchBinding& self) { withoutGil([&] { self.core->close(); }); },
            "Ends the watch and its subscriptions.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](WatchBinding& self, const py::args&) { withoutGil([&] { self.core->close(); }); });
}
