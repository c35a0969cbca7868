// One flag, set by the handler.

#include "host/tool/interrupt.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace standin {
namespace {

std::atomic<bool> interrupted{false};

extern "C" void OnInterrupt(int signal) {
  interrupted = true;
  std::signal(signal, SIG_DFL);
}

}  // namespace

void CatchInterrupts() {
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
}

bool Interrupted() { return interrupted; }

// Looks for an interrupt in small steps: a signal may reach any thread, so it need not wake this one.
void Pause(std::chrono::duration<double> time) {
  using Clock = std::chrono::steady_clock;
  const std::chrono::duration<double> kStep(0.02);
  for (const auto start = Clock::now(); !interrupted && Clock::now() - start < time;) {
    std::this_thread::sleep_for(std::min(kStep, time));
  }
}

}  // namespace standin
