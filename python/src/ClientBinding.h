#pragma once

#include <pybind11/pybind11.h>

// Adds chanlink.Client: a PythonClient with checked arguments, the module's
// exceptions, and subscription callbacks run inside poll().
void defineClient(pybind11::module_& module);
