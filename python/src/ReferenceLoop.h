#pragma once

#include <string>

// The C++ side of the Python benchmark (python/bench/get_rate.py): count
// gets of one channel with ReconnectingClient::blockingGet, the call
// Client.get makes. Returns the seconds they took, or -1 when the client
// could not log in or a get failed.
double referenceGetLoop(const std::string& host, const std::string& port,
                        const std::string& username, const std::string& password,
                        unsigned int channel, unsigned long count);
