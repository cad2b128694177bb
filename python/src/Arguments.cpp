#include "Arguments.h"

#include <cmath>
#include <limits>
#include <string>

namespace py = pybind11;

namespace {

std::string typeName(py::handle value) {
    return Py_TYPE(value.ptr())->tp_name;
}

}  // namespace

namespace arguments {

unsigned long long integer(py::handle value, const char* what, unsigned long long minimum,
                           unsigned long long maximum) {
    if (PyBool_Check(value.ptr()) || !PyIndex_Check(value.ptr())) {
        throw py::type_error(std::string(what) + " must be an int, not " + typeName(value));
    }
    const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
    if (!index) {
        throw py::error_already_set();
    }
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
    if (number == -1 && PyErr_Occurred()) {
        throw py::error_already_set();
    }
    if (overflow != 0 || number < 0 || static_cast<unsigned long long>(number) < minimum ||
        static_cast<unsigned long long>(number) > maximum) {
        throw py::value_error(std::string(what) + " must be " + std::to_string(minimum) + " to " +
                              std::to_string(maximum) + ", not " +
                              py::str(index).cast<std::string>());
    }
    return static_cast<unsigned long long>(number);
}

unsigned int channelId(py::handle value) {
    return static_cast<unsigned int>(
        integer(value, "channel id", 0, std::numeric_limits<unsigned int>::max()));
}

std::vector<unsigned char> data(py::handle value, const char* what) {
    if (PyUnicode_Check(value.ptr()) || !PyObject_CheckBuffer(value.ptr())) {
        throw py::type_error(std::string(what) + " must be bytes, not " + typeName(value));
    }
    Py_buffer view;
    if (PyObject_GetBuffer(value.ptr(), &view, PyBUF_C_CONTIGUOUS) != 0) {
        throw py::error_already_set();
    }
    const auto* bytes = static_cast<const unsigned char*>(view.buf);
    std::vector<unsigned char> copy(bytes, bytes + view.len);
    PyBuffer_Release(&view);
    return copy;
}

std::chrono::milliseconds timeout(py::handle value, std::chrono::milliseconds fallback) {
    if (value.is_none()) {
        return fallback;
    }
    if (PyBool_Check(value.ptr()) || !(PyFloat_Check(value.ptr()) || PyIndex_Check(value.ptr()))) {
        throw py::type_error("timeout must be a number of seconds, not " + typeName(value));
    }
    const double seconds = PyFloat_AsDouble(value.ptr());
    if (seconds == -1.0 && PyErr_Occurred()) {
        throw py::error_already_set();
    }
    if (std::isnan(seconds) || seconds < 0) {
        throw py::value_error("timeout must be 0 seconds or more, not " +
                              py::str(value).cast<std::string>());
    }
    // Beyond about 31,000 years is the same as no limit.
    if (seconds >= 1e12) {
        return std::chrono::milliseconds::max();
    }
    return std::chrono::milliseconds(static_cast<long long>(std::ceil(seconds * 1000)));
}

}  // namespace arguments
