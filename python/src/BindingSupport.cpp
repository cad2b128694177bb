#include "BindingSupport.h"

#include "Arguments.h"

namespace py = pybind11;

namespace binding {

void raiseIfInterrupted() {
    if (PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
}

py::bytes toBytes(const std::vector<unsigned char>& data) {
    return py::bytes(reinterpret_cast<const char*>(data.data()), data.size());
}

std::string describeSeconds(std::chrono::milliseconds timeout) {
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

}  // namespace binding
