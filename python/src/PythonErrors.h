#pragma once

#include <pybind11/pybind11.h>

#include <string>

// The module's exception classes and how they are raised. All need the GIL.
//
//     Error(Exception)
//     ├── ConnectionFailed(Error, ConnectionError)
//     ├── LoginRefused(Error)         .result: 0 wrong credentials, 2 too many connections
//     ├── Timeout(Error, TimeoutError)
//     └── Refused(Error)              .channel, .reason, .name
class PythonErrors {
public:
    // Makes the classes and adds them to module.
    static void define(pybind11::module_& module);

    [[noreturn]] static void connectionFailed(const std::string& message);
    [[noreturn]] static void timeout(const std::string& message);
    [[noreturn]] static void loginRefused(int result);
    [[noreturn]] static void refused(unsigned int channel, unsigned char reason);
    // A Refused instance, for get_many's results.
    static pybind11::object makeRefused(unsigned int channel, unsigned char reason);

private:
    [[noreturn]] static void raise(PyObject* type, const pybind11::object& instance);
};
