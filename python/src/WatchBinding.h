#pragma once

#include <pybind11/pybind11.h>

#include <memory>

#include "ChangeWatch.h"

// chanlink.Watch, the iterator Client.watch() returns, over a ChangeWatch.
struct WatchBinding {
    std::unique_ptr<ChangeWatch> core;

    // Closes the watch without the GIL, as it takes the client's lock.
    ~WatchBinding();
    // The next chanlink.Change; StopIteration at the end.
    pybind11::object next();

    // Adds chanlink.Watch and chanlink.Change.
    static void define(pybind11::module_& module);
};
