// The driver of one collection, from its first progress call to its last.

#ifndef RUBRUF_HOST_STANDIN_COLLECTOR_H_
#define RUBRUF_HOST_STANDIN_COLLECTOR_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/standin/handles.h"
#include "host/standin/token.h"
#include "host/tev_host.h"

namespace standin {

struct Collection {
  tev_progress_status_t status = TEV_PROGRESS_REFUSED;  // of the last call
  std::vector<Token> tokens;                            // in the order in which the buffer took them
  size_t calls = 0;                                     // of progress
  size_t refusals = 0;                                  // calls that ended at a refused token
  std::optional<Token> oversized;                       // a token larger than the whole buffer
  // Time in progress calls before the first write, when the script runs, and after it.
  Clock::duration script_time{};
  Clock::duration walk_time{};

  bool complete() const { return status == TEV_PROGRESS_DONE || status == TEV_PROGRESS_DONE_FORCE_SYNC; }
  // True if it failed with a walk under way. The provider keeps that walk: progress for any source would go on with it,
  // and only finalize ends it. After any other failure the provider can collect again.
  bool stuck() const { return !complete() && (refusals > 0 || !tokens.empty()); }
};

// Progress calls in a row that bring no token before Collect gives up. A plain buffer takes any token that fits it once
// it is empty, but the `refuse` of a test may refuse a token several times.
constexpr int kMaxFruitlessCalls = 100;

// Calls progress until the collection ends, and empties the buffer after each call. Gives up, with TEV_PROGRESS_REFUSED
// as the status, on an oversized token and after kMaxFruitlessCalls calls in a row that bring no token.
Collection Collect(tev_event_provider_t* provider, uint32_t source_index, tev_data_serializer_t* buffer);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_COLLECTOR_H_
