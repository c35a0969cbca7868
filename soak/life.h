// Life: one life of the provider (initialize, collections, finalize) with 256 scripts, each token compared with the
// model.

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

// Loads the script results.py. The interpreter runs as long as the returned module exists, so several lives can use the
// same interpreter. Throws std::runtime_error.
standin::PythonModule LoadScript(const standin::Plugin& plugin);

struct Totals {
  uint64_t lives = 0;
  uint64_t collections = 0;
  uint64_t tokens = 0;
  uint64_t refusals = 0;
  uint64_t raised = 0;
  uint64_t stuck = 0;  // walks that met a value that they cannot write
  uint64_t left = 0;   // walks that Finalize ended between two tokens
};

class Life {
 public:
  // Begins the life; all its random choices come from `seed`. `next_key` is the number that the next new key name gets;
  // numbering continues from life to life. All arguments must outlive the object. Throws std::runtime_error.
  Life(const standin::Plugin& plugin, const standin::PythonModule& script, uint32_t seed, uint32_t* next_key,
       Totals* totals);

  // Runs one collection. False if the walk is stuck or was left between two tokens: the life must end then. Throws
  // std::runtime_error if the tokens or the status differ from the model's.
  bool Collect();

 private:
  uint32_t Below(size_t bound) { return static_cast<uint32_t>(random_() % bound); }
  // Draws a result: the Python statements that make it, and the stream that the model expects.
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
