#pragma once

#include <pybind11/pybind11.h>

// Adds chanlink.Channel and chanlink.Device: a PythonDevice with checked
// arguments.
void defineDevice(pybind11::module_& module);
