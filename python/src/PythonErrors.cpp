#include "PythonErrors.h"

#include "chanlink/messages/ReasonCode.h"

namespace py = pybind11;

namespace {

// Made once at import and kept for the life of the process.
PyObject* errorType = nullptr;
PyObject* connectionFailedType = nullptr;
PyObject* loginRefusedType = nullptr;
PyObject* timeoutType = nullptr;
PyObject* refusedType = nullptr;

PyObject* makeType(py::module_& module, const char* name, const char* doc, PyObject* bases) {
    const std::string qualified = std::string("chanlink.") + name;
    PyObject* type = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, bases, nullptr);
    Py_XDECREF(bases);
    if (type == nullptr) {
        throw py::error_already_set();
    }
    module.add_object(name, py::reinterpret_borrow<py::object>(type));
    return type;
}

}  // namespace

void PythonErrors::define(py::module_& module) {
    errorType = makeType(module, "Error", "Base of every error this module raises.", nullptr);
    connectionFailedType =
        makeType(module, "ConnectionFailed",
                 "No connection to the device: it cannot be reached, it was lost, or the "
                 "client is closed.",
                 PyTuple_Pack(2, errorType, PyExc_ConnectionError));
    loginRefusedType = makeType(module, "LoginRefused",
                                "The device refused the login. .result is 0 for a wrong user "
                                "name or password, 2 for too many connections.",
                                PyTuple_Pack(1, errorType));
    timeoutType = makeType(module, "Timeout", "No answer came within the timeout.",
                           PyTuple_Pack(2, errorType, PyExc_TimeoutError));
    refusedType = makeType(module, "Refused",
                           "The device (or the library) refused a get or set. .channel is the "
                           "channel id, .reason the reason code, .name its name (None for a "
                           "device's own code).",
                           PyTuple_Pack(1, errorType));
}

void PythonErrors::raise(PyObject* type, const py::object& instance) {
    PyErr_SetObject(type, instance.ptr());
    throw py::error_already_set();
}

void PythonErrors::connectionFailed(const std::string& message) {
    raise(connectionFailedType, py::handle(connectionFailedType)(message));
}

void PythonErrors::timeout(const std::string& message) {
    raise(timeoutType, py::handle(timeoutType)(message));
}

void PythonErrors::loginRefused(int result) {
    py::object instance = py::handle(loginRefusedType)(
        result == 2 ? "login refused: the device has too many connections"
                    : "login refused: wrong user name or password");
    instance.attr("result") = result;
    raise(loginRefusedType, instance);
}

py::object PythonErrors::makeRefused(unsigned int channel, unsigned char reason) {
    const char* name = ReasonCode::name(reason);
    const std::string message = "channel " + std::to_string(channel) +
                                " refused: " + (name != nullptr ? name : "reason") + " (" +
                                std::to_string(reason) + ", " + ReasonCode::describe(reason) + ")";
    py::object instance = py::handle(refusedType)(message);
    instance.attr("channel") = channel;
    instance.attr("reason") = static_cast<int>(reason);
    instance.attr("name") = name != nullptr ? py::object(py::str(name)) : py::none();
    return instance;
}

void PythonErrors::refused(unsigned int channel, unsigned char reason) {
    raise(refusedType, makeRefused(channel, reason));
}
