// Lives one after the other, and the memory between them.

#include "soak/long_run.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "soak/life.h"
#include "soak/script.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;

// CPython keeps some memory of every interpreter that has ended. Few do, and what bare ones leave is not counted.
constexpr uint64_t kLivesPerInterpreter = 100;
constexpr int kBareInterpreters = 40;
// In KiB. Between two lives of a flat run it goes up and down by some 300, and a leak of eight bytes a life or a
// collection comes to more than this within minutes.
constexpr double kGrowthAllowed = 1024;

// In KiB, without what is free and could be given back.
double ResidentMemory() {
  malloc_trim(0);
  double size = 0;
  double resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

// What is left of an interpreter that has only loaded the script.
double CostOfInterpreter(const standin::Plugin& plugin) {
  const auto start_some = [&plugin] {
    for (int i = 0; i < kBareInterpreters; ++i) LoadScript(plugin);
    return ResidentMemory();
  };
  const double before = start_some();
  return (start_some() - before) / kBareInterpreters;
}

class Run {
 public:
  Run(const standin::Plugin& plugin, uint32_t seed) : plugin_(plugin), seed_(seed) {}

  // Lives until then, and returns the resident memory, without the cost of interpreters, in KiB.
  double Live(Clock::time_point end, double cost_of_interpreter) {
    do {
      try {
        LiveOnce();
      } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) + "; again with --seed " + std::to_string(seed_));
      }
      ++seed_;
    } while (Clock::now() < end);
    return ResidentMemory() - cost_of_interpreter * static_cast<double>(interpreters_);
  }

  void Print() const {
    printf("%llu collections, %llu tokens (and %llu refused), %llu lives, %llu interpreters\n",
           Number(totals_.collections), Number(totals_.tokens), Number(totals_.refusals), Number(totals_.lives),
           Number(interpreters_));
    printf("0 mismatches; scripts that raised: %llu; walks that stuck: %llu, that a finalization ended: %llu\n",
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
    // The provider is then the interpreter's last user, and ends it with whatever walk is under way.
    if (totals_.lives % kLivesPerInterpreter == 0) script_.reset();
    life.reset();
    if (tev_source_t::live + tev_source_array_t::live + tev_opaque_events_t::live != 0) {
      throw std::runtime_error("handles of the host are left");
    }
  }

  const standin::Plugin& plugin_;
  uint32_t seed_;
  std::optional<standin::PythonModule> script_;
  uint32_t next_key_ = 0;
  uint64_t interpreters_ = 0;
  Totals totals_;
};

}  // namespace

void LongRun(const standin::Plugin& plugin, std::chrono::duration<double> time, uint32_t seed) {
  const double cost = CostOfInterpreter(plugin);
  const auto begin = Clock::now();
  const auto at = [&](double part) { return begin + std::chrono::duration_cast<Clock::duration>(part * time); };
  Run run(plugin, seed);
  const double start = run.Live(at(0.2), cost);
  const double middle = run.Live(at(0.6), cost);
  const double end = run.Live(at(1), cost);
  run.Print();
  printf("Resident KiB: %.0f after warm-up, %.0f in the middle, %.0f at the end; without %.1f for each interpreter\n",
         start, middle, end, cost);
  if (end - start > kGrowthAllowed) throw std::runtime_error("resident memory has grown");
}

}  // namespace soak
