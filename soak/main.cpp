// rubruf-soak: plays the host for long, and looks for what only shows then.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "host/standin/plugin.h"
#include "soak/life.h"
#include "soak/long_run.h"
#include "utils/log/log.h"

namespace {

// Lives a life again until the number of references in the interpreter is the same before and after. An interpreter
// that does not count them tells of lost objects, by the blocks of memory that its objects take. Throws
// std::runtime_error with the seeds of the lives that never come to that, and when Python counts neither.
void CheckReferences(const standin::Plugin& plugin, uint32_t lives) {
  // By then Python has filled its caches with what the life needs.
  constexpr int kMostRepetitions = 12;
  const standin::PythonModule script = soak::LoadScript(plugin);
  const auto references = [&script] { return std::stol(script.Call("references", "")); };
  if (references() == 0) throw std::runtime_error("this interpreter counts nothing; is PYTHONMALLOC set?");
  uint32_t next_key = 0;
  soak::Totals totals;
  std::string lost;
  for (uint32_t seed = 0; seed < lives; ++seed) {
    long change = 1;
    for (int repetition = 0; repetition < kMostRepetitions && change != 0; ++repetition) {
      const long before = references();
      {
        soak::Life life(plugin, script, seed, &next_key, &totals);
        while (life.Collect()) continue;
      }
      change = references() - before;
    }
    if (change != 0) lost += " " + std::to_string(seed) + " (by " + std::to_string(change) + ")";
  }
  printf("%u lives: %llu collections, %llu of them raised; %llu walks stuck, %llu left in their midst\n", lives,
         static_cast<unsigned long long>(totals.collections), static_cast<unsigned long long>(totals.raised),
         static_cast<unsigned long long>(totals.stuck), static_cast<unsigned long long>(totals.left));
  if (!lost.empty())
    throw std::runtime_error("references are lost, or given back twice, in the lives of the seeds" + lost);
}

int Soak(int argc, char** argv) {
  std::string library;
  double minutes = 10;
  uint32_t seed = 0;
  uint32_t lives = 1000;
  CLI::App app("Plays the host for long, and looks for what only shows then.");
  app.add_option("LIBRARY", library, "the plug-in")->required();
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "compare every token with the model, and watch the memory");
  run->add_option("MINUTES", minutes)->capture_default_str();
  run->add_option("--seed", seed, "of the first life; a failure tells that of its life")->capture_default_str();
  CLI::App* references = app.add_subcommand("references", "compare the references before and after");
  references->add_option("LIVES", lives)->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
  const standin::Plugin plugin(library);
  // All messages are formed, and none is shown.
  plugin.Symbol<decltype(&::set_log_func)>("set_log_func")([](int, const char*) {}, TEV_LOG_DEBUG);
  if (run->parsed()) soak::LongRun(plugin, std::chrono::duration<double, std::ratio<60>>(minutes), seed);
  if (references->parsed()) CheckReferences(plugin, lives);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Soak(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "rubruf-soak: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
