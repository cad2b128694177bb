#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <string>
#include <vector>

// Helpers the binding classes share. All but withoutGil need the GIL.
namespace binding {

// Runs f without the GIL: for every call into PythonClient, PythonDevice and
// ChangeWatch, which wait and lock.
template <typename F>
auto withoutGil(F&& f) {
    const pybind11::gil_scoped_release release;
    return f();
}

// Raises what a signal handler (Ctrl-C) raised during a wait.
void raiseIfInterrupted();
pybind11::bytes toBytes(const std::vector<unsigned char>& data);
// "2.5 s"
std::string describeSeconds(std::chrono::milliseconds timeout);
// The ids of an iterable of channel ids, checked.
std::vector<unsigned int> channelList(const pybind11::handle& channels);

}  // namespace binding
