#pragma once

// The message type carried in byte 0 of every payload. Kept as a plain 8-bit
// number so that any received value, known or not, can be represented.
using OpCode = unsigned char;
