// rubruf-soak: plays the host for long, and looks for what only shows then.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "host/standin/plugin.h"
#include "soak/long_run.h"
#include "soak/reference_check.h"
#include "utils/log/log.h"

namespace {

int Soak(int argc, char** argv) {
  std::string library;
  double minutes = 10;
  uint32_t seed = 0;
  int collections = 10000;
  CLI::App app("Plays the host for long, and looks for what only shows then.");
  app.add_option("LIBRARY", library, "the plug-in")->required();
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "compare every token with the model, and watch the memory");
  run->add_option("MINUTES", minutes)->capture_default_str();
  run->add_option("--seed", seed, "of the first life; a failure tells that of its life")->capture_default_str();
  CLI::App* references = app.add_subcommand("references", "compare the references before and after");
  references->add_option("COLLECTIONS", collections, "of each sample")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
  const standin::Plugin plugin(library);
  // All messages are formed, and none is shown.
  plugin.Symbol<decltype(&::set_log_func)>("set_log_func")([](int, const char*) {}, TEV_LOG_DEBUG);
  if (run->parsed()) soak::LongRun(plugin, std::chrono::duration<double, std::ratio<60>>(minutes), seed);
  if (references->parsed()) soak::CheckReferences(plugin, collections);
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
