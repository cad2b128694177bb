#pragma once

namespace tool {

// Installs handlers for SIGINT and SIGTERM that record the signal. When
// wakeDescriptor is open, the handler also writes a byte to it, so that a
// poll() waiting on its other end returns at once.
void installStopHandlers(int wakeDescriptor = -1);

// Whether SIGINT or SIGTERM has come since the handlers were installed.
bool stopRequested();

// "SIGINT" or "SIGTERM" once one has come; empty before.
const char* stopSignalName();

}  // namespace tool
