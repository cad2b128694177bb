#include <benchmark/benchmark.h>

#include "chanlink/wire/Decoder.h"
#include "chanlink/wire/Encoder.h"
