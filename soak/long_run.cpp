// The long run: lives of the provider one after another, and the resident memory at three times.

#include "soak/long_run.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

#include "model/stream_model.h"
#include "soak/life.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;

// CPython does not free all memory when an interpreter ends: it keeps almost nothing in 3.11, 170 KiB in 3.8 and 320
// KiB in 3.13. So the run ends an interpreter only after many lives, and subtracts what an interpreter without a
// provider keeps. The error of that amount is about 20 KiB.
constexpr uint64_t kLivesPerInterpreter = 500;
constexpr uint32_t kInterpretersForCost = 40;
constexpr double kCostTolerance = 20;
// In KiB. If an ended interpreter keeps more than this (3.12.1 keeps over 1.1 MiB), the whole run uses one interpreter:
// the amount varies with what the interpreter has done, and would hide a leak of the plug-in.
constexpr double kMostCost = 1024;
// In KiB. Without a leak, memory goes up and down by about 300 KiB. A leak of one byte per collection exceeds this
// limit within ten minutes.
constexpr double kGrowthAllowed = 1024;
// A shorter run ends while memory still grows to its normal size, so its growth is not checked.
constexpr std::chrono::seconds kShortestWatched(30);

// In KiB, after free memory has been returned to the system.
double ResidentMemory() {
  malloc_trim(0);
  double size = 0;
  double resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

// The memory in KiB that stays allocated for each ended interpreter, if it made results but ran no provider.
double CostOfInterpreter(const standin::Plugin& plugin) {
  const auto start_some = [&plugin] {
    for (uint32_t i = 0; i < kInterpretersForCost; ++i) {
      const standin::PythonModule script = LoadScript(plugin);
      std::mt19937 random(i);
      for (int results = 0; results < 500; ++results) {
        script.Call("compute", ToPython(stream_model::RandomResult([&] { return static_cast<uint32_t>(random()); })));
      }
    }
    return ResidentMemory();
  };
  const double before = start_some();
  return (start_some() - before) / kInterpretersForCost;
}

class Run {
 public:
  // `changes`: the run ends the interpreter now and then and starts another one.
  Run(const standin::Plugin& plugin, uint32_t seed, bool changes) : plugin_(plugin), seed_(seed), changes_(changes) {}

  // Runs lives until `end`, at least one. Returns the resident memory in KiB, less the cost of the interpreters so far.
  double Live(Clock::time_point end, double cost_of_interpreter) {
    do {
      try {
        LiveOnce();
      } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) + "; again with --seed " + std::to_string(seed_));
      }
      ++seed_;
    } while (Clock::now() < end || !script_);
    return ResidentMemory() - cost_of_interpreter * static_cast<double>(interpreters_);
  }

  uint64_t interpreters() const { return interpreters_; }

  void Print() const {
    printf("%llu collections, %llu tokens (and %llu refused), %llu lives, %llu interpreters\n",
           Number(totals_.collections), Number(totals_.tokens), Number(totals_.refusals), Number(totals_.lives),
           Number(interpreters_));
    printf("0 mismatches; scripts that raised: %llu; stuck walks: %llu; walks ended by finalize: %llu\n",
           Number(totals_.raised), Number(totals_.stuck), Number(totals_.left));
  }

 private:
  static unsigned long long Number(uint64_t number) { return number; }

  void LiveOnce() {
    if (!script_) {
      script_.emplace(LoadScript(plugin_));
      ++interpreters_;
    }
    auto life = std::make_unique<Life>(plugin_, *script_, seed_, &next_key_, &totals_);
    while (life->Collect()) continue;
    // Without the script, the provider is the interpreter's last user: its finalize ends the interpreter, even during a
    // walk.
    if (changes_ && totals_.lives % kLivesPerInterpreter == 0) script_.reset();
    life.reset();
    if (tev_source_t::live + tev_source_array_t::live + tev_opaque_events_t::live != 0) {
      throw std::runtime_error("handles of the host are left");
    }
  }

  const standin::Plugin& plugin_;
  uint32_t seed_;
  bool changes_;
  std::optional<standin::PythonModule> script_;
  uint32_t next_key_ = 0;
  uint64_t interpreters_ = 0;
  Totals totals_;
};

}  // namespace

void LongRun(const standin::Plugin& plugin, std::chrono::duration<double> time, uint32_t seed) {
  const bool watched = time >= kShortestWatched;
  const double cost = watched ? CostOfInterpreter(plugin) : 0;
  const auto begin = Clock::now();
  const auto at = [&](double part) { return begin + std::chrono::duration_cast<Clock::duration>(part * time); };
  Run run(plugin, seed, cost < kMostCost);
  const double start = run.Live(at(0.2), cost);
  const double middle = run.Live(at(0.6), cost);
  const double end = run.Live(at(1), cost);
  run.Print();
  if (!watched) return;
  printf("Resident KiB: %.0f after warm-up, %.0f in the middle, %.0f at the end; without %.1f for each interpreter\n",
         start, middle, end, cost);
  if (end - start > kGrowthAllowed + kCostTolerance * static_cast<double>(run.interpreters()))
    throw std::runtime_error("resident memory has grown");
}

}  // namespace soak
