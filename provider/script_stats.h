// ScriptStats: the figures of one script that `rubruf.stats()` tells, from the record's making to its end.

#ifndef RUBRUF_PROVIDER_SCRIPT_STATS_H_
#define RUBRUF_PROVIDER_SCRIPT_STATS_H_

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "host/tev_host.h"

struct ScriptStats {
  using Clock = std::chrono::steady_clock;

  // A collection was begun. It is under way until it has completed or failed.
  void Begin() {
    ++begun;
    under_way = true;
  }
  // The script's function has taken this time.
  void AddTime(Clock::duration time) {
    last_call = time;
    longest_call = std::max(longest_call, time);
    all_calls += time;
  }
  // A progress call has returned. A walk that cannot go on fails with each call, and is counted once.
  void AddCall(tev_progress_status_t status, uint64_t written) {
    tokens_written += written;
    if (status == TEV_PROGRESS_REFUSED) {
      ++tokens_refused;
    } else if (under_way) {
      under_way = false;
      ++(status == TEV_PROGRESS_ERROR ? failed : completed);
    }
  }

  uint64_t begun = 0;
  uint64_t completed = 0;
  uint64_t failed = 0;
  uint64_t values_left_out = 0;
  uint64_t tokens_written = 0;
  uint64_t tokens_refused = 0;
  // In the script's function.
  Clock::duration last_call{};
  Clock::duration longest_call{};
  Clock::duration all_calls{};
  bool under_way = false;
};

#endif  // RUBRUF_PROVIDER_SCRIPT_STATS_H_
