// The long run: ever new lives of the provider, whose every token is compared with the model of the stream.

#ifndef RUBRUF_SOAK_LONG_RUN_H_
#define RUBRUF_SOAK_LONG_RUN_H_

#include <chrono>
#include <cstdint>

#include "host/standin/plugin.h"

namespace soak {

// Runs for this time and prints a report. Each life takes its course from a seed of its own, counted up from `seed`.
// Throws std::runtime_error at the first mismatch, with the seed of the life; and when resident memory has grown, which
// only runs of half a minute and more are long enough to tell.
void LongRun(const standin::Plugin& plugin, std::chrono::duration<double> time, uint32_t seed);

}  // namespace soak

#endif  // RUBRUF_SOAK_LONG_RUN_H_
