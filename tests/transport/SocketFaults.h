#pragma once

// Makes the next recv or send on one descriptor fail with a chosen errno, for
// error paths that real sockets do not produce on demand. Works by defining
// recv and send in the test program, which takes precedence over the C
// library's; the library's code path is unchanged.
namespace socket_faults {

void failNextRecv(int descriptor, int error);
void failNextSend(int descriptor, int error);
void clear();

}  // namespace socket_faults
