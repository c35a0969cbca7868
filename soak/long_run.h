// The long run: lives of the provider one after another, with every token compared with the model of the stream.

#ifndef RUBRUF_SOAK_LONG_RUN_H_
#define RUBRUF_SOAK_LONG_RUN_H_

#include <chrono>
#include <cstdint>

#include "host/standin/plugin.h"

namespace soak {

// Runs for `time` and prints a report. The first life is drawn from `seed`, the next one from `seed` + 1, and so on.
// Throws std::runtime_error at the first mismatch, with the seed of that life. Throws it also if resident memory has
// grown; this is checked only in runs of at least half a minute.
void LongRun(const standin::Plugin& plugin, std::chrono::duration<double> time, uint32_t seed);

}  // namespace soak

#endif  // RUBRUF_SOAK_LONG_RUN_H_
