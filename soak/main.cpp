// rubruf-soak: plays the host for very long, and looks for what only shows then.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "host/standin/plugin.h"
#include "soak/long_run.h"
#include "utils/log/log.h"

int main(int argc, char** argv) {
  std::string library;
  double minutes = 10;
  uint32_t seed = 0;
  CLI::App app("Plays the host for very long, and looks for what only shows then.");
  app.add_option("LIBRARY", library)->required();
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run");
  run->add_option("MINUTES", minutes);
  run->add_option("--seed", seed);
  CLI11_PARSE(app, argc, argv);
  setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
  try {
    const standin::Plugin plugin(library);
    // All messages are formed, and not shown.
    plugin.Symbol<decltype(&::set_log_func)>("set_log_func")([](int, const char*) {}, TEV_LOG_DEBUG);
    soak::LongRun(plugin, std::chrono::duration<double, std::ratio<60>>(minutes), seed);
  } catch (const std::exception& error) {
    fprintf(stderr, "rubruf-soak: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
