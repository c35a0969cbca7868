// The driver of one collection: the loop around progress.

#include "host/standin/collector.h"

#include <iterator>

namespace standin {

Collection Collect(tev_event_provider_t* provider, uint32_t source_index, tev_data_serializer_t* buffer) {
  Collection collection;
  buffer->first_write.reset();
  const auto start = Clock::now();
  Clock::duration in_progress{};
  for (int fruitless = 0; fruitless < kMaxFruitlessCalls;) {
    const auto call_start = Clock::now();
    collection.status = provider->progress(provider, source_index, buffer);
    in_progress += Clock::now() - call_start;
    ++collection.calls;
    std::vector<Token> taken = buffer->Drain();
    fruitless = taken.empty() ? fruitless + 1 : 0;
    collection.tokens.insert(collection.tokens.end(), std::make_move_iterator(taken.begin()),
                             std::make_move_iterator(taken.end()));
    if (collection.status != TEV_PROGRESS_REFUSED) break;
    ++collection.refusals;
    collection.oversized = buffer->oversized;
    if (collection.oversized) break;
  }
  collection.script_time = buffer->first_write ? *buffer->first_write - start : in_progress;
  collection.walk_time = in_progress - collection.script_time;
  return collection;
}

}  // namespace standin
