// One life of the provider with 256 scripts, and what they return in it.

#ifndef RUBRUF_SOAK_LIFE_H_
#define RUBRUF_SOAK_LIFE_H_

#include <cstdint>
#include <random>
#include <string>
#include <utility>

#include "host/standin/hosted_provider.h"
#include "host/standin/plugin.h"
#include "host/standin/python_module.h"
#include "model/stream_model.h"

namespace soak {

// Loads the script, results.py, and with it holds the interpreter: lives of the provider then come and go in one
// interpreter. Throws std::runtime_error.
standin::PythonModule LoadScript(const standin::Plugin& plugin);

struct Totals {
  uint64_t lives = 0;
  uint64_t collections = 0;
  uint64_t tokens = 0;
  uint64_t refusals = 0;
  uint64_t raised = 0;
  uint64_t stuck = 0;
  uint64_t left = 0;  // walks that a finalization ended
};

class Life {
 public:
  // Begins the life; its course is drawn from `seed`. `next_key` is the number of the next new key name, which outlasts
  // lives. All must outlive it. Throws std::runtime_error.
  Life(const standin::Plugin& plugin, const standin::PythonModule& script, uint32_t seed, uint32_t* next_key,
       Totals* totals);

  // Collects once. False: the walk is stuck, or left in its midst, and the life has to end. Throws std::runtime_error
  // when something else comes than the model says.
  bool Collect();

 private:
  uint32_t Below(size_t bound) { return static_cast<uint32_t>(random_() % bound); }
  // What a script returns, as statements, and what shall come of it.
  std::pair<std::string, stream_model::Stream> Draw();
  void CheckSources();

  std::mt19937 random_;
  const bool tolerant_;
  const standin::PythonModule& script_;
  uint32_t* next_key_;
  Totals* totals_;
  stream_model::KeyIds ids_;
  standin::HostedProvider provider_;
};

}  // namespace soak

#endif  // RUBRUF_SOAK_LIFE_H_
