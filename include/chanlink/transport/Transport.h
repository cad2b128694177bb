#pragma once

#include "chanlink/transport/ReadTransport.h"
#include "chanlink/transport/WriteTransport.h"

// A non-blocking byte transport that reads, writes and is ticked. Held by
// std::shared_ptr<Transport> and handed to the endpoints as the
// ReadTransport and WriteTransport sides of the same object.
class Transport : public ReadTransport, public WriteTransport {
public:
    ~Transport() override;

    // Lets the transport make progress on its own work (connecting,
    // accepting). Called once per session tick, before reading and writing.
    virtual void tick() = 0;

protected:
    Transport() = default;
    Transport(const Transport&) = default;
    Transport& operator=(const Transport&) = default;
};
