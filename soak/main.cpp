// rubruf-soak: plays the host for many lives, and finds wrong tokens, lost references and growth of memory.

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

// Counts the interpreter's references before and after each life, and repeats the life until they are equal. A plain
// Python does not count references: its blocks of memory are counted instead, which finds lost objects. Throws
// std::runtime_error with the seeds of the lives for which they are never equal, and if Python counts neither.
void CheckReferences(const standin::Plugin& plugin, uint32_t lives) {
  // The first repetitions may differ without a leak, because Python fills its caches.
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
  printf("%u lives: %llu collections, %llu of them raised; %llu stuck walks, %llu walks ended by finalize\n", lives,
         static_cast<unsigned long long>(totals.collections), static_cast<unsigned long long>(totals.raised),
         static_cast<unsigned long long>(totals.stuck), static_cast<unsigned long long>(totals.left));
  if (!lost.empty())
    throw std::runtime_error("references are lost, or released twice, in the lives of the seeds" + lost);
}

int Soak(int argc, char** argv) {
  std::string library;
  double minutes = 10;
  uint32_t seed = 0;
  uint32_t lives = 1000;
  CLI::App app("Plays the host for many lives, and finds wrong tokens, lost references and growth.");
  app.add_option("LIBRARY", library, "the plug-in")->required();
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "compare every token with the model, and watch the memory");
  run->add_option("MINUTES", minutes)->capture_default_str();
  run->add_option("--seed", seed, "seed of the first life; a failure names the seed to repeat")->capture_default_str();
  CLI::App* references = app.add_subcommand("references", "compare the references before and after");
  references->add_option("LIVES", lives)->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
  const standin::Plugin plugin(library);
  // The log function discards all messages. The debug level makes sure that each one is formatted.
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
