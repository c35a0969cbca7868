// Drives one collection from its first progress call to its end.

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
  // In progress calls: until the first write, which is when the script has returned, and from then on.
  Clock::duration script_time{};
  Clock::duration walk_time{};

  bool complete() const { return status == TEV_PROGRESS_DONE || status == TEV_PROGRESS_DONE_FORCE_SYNC; }
  // It failed with a walk under way, which the provider keeps: progress on whatever source would go on with that walk,
  // and only finalize drops it. A collection that failed without being stuck leaves the provider ready for others.
  bool stuck() const { return !complete() && (refusals > 0 || !tokens.empty()); }
};

// A deterministic writer refuses nothing twice once it has been emptied; a test's `refuse` may do so for a while.
constexpr int kMaxFruitlessCalls = 100;

// Calls progress until the collection ends, emptying the buffer after each call. Gives up, with the status at
// "refused", on an oversized token and after kMaxFruitlessCalls calls in a row that brought nothing.
Collection Collect(tev_event_provider_t* provider, uint32_t source_index, tev_data_serializer_t* buffer);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_COLLECTOR_H_
