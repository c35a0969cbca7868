// Collections of one sample after the other, and the references before and after.

#include "soak/reference_check.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "host/standin/hosted_provider.h"
#include "host/standin/python_module.h"
#include "soak/script.h"

namespace soak {
namespace {

using standin::HostedProvider;

// By then Python has filled its caches.
constexpr int kWarmUp = 200;

// What a host does with a walk.
enum class Way { kTaken, kRefused, kLeft };
constexpr const char* kWays[] = {"taken at once", "each token refused once, get-sources between", "left in its midst"};

class Check {
 public:
  Check(const standin::Plugin& plugin, const standin::PythonModule& script) : plugin_(plugin), script_(script) {}

  // The growth over so many collections of a sample.
  long Growth(const std::string& sample, Way way, int collections) {
    script_.Call("sample", sample);
    for (int i = 0; i < kWarmUp; ++i) Collect(way);
    provider_.reset();
    const long before = References();
    tokens_ = 0;
    for (int i = 0; i < collections; ++i) Collect(way);
    provider_.reset();
    return References() - before;
  }

  long References() { return std::stol(script_.Call("references", "")); }
  size_t tokens() const { return tokens_; }

 private:
  // The provider lives on as long as it can collect.
  void Collect(Way way) {
    if (!provider_) {
      provider_ = std::make_unique<HostedProvider>(plugin_, ScriptOptions(2));
      provider_->Initialize();
    }
    tev_data_serializer_t buffer;
    size_t offered = 0;
    buffer.refuse = [&offered, way, leave_at = way == Way::kLeft ? 1 + ++turn_ % 16 : SIZE_MAX](const auto&) {
      return ++offered > leave_at || (way == Way::kRefused && offered % 2 == 1);
    };
    tev_progress_status_t status = TEV_PROGRESS_REFUSED;
    size_t refusals = 0;
    while (status == TEV_PROGRESS_REFUSED) {
      status = provider_->Progress(0, &buffer);
      tokens_ += buffer.Drain().size();
      if (status == TEV_PROGRESS_REFUSED && way == Way::kLeft) return provider_.reset();
      if (way == Way::kRefused && ++refusals == 5) provider_->Sources();
    }
    // No walk is under way where nothing was written: the script raised.
    if (status == TEV_PROGRESS_ERROR && offered > 0) provider_.reset();
  }

  const standin::Plugin& plugin_;
  const standin::PythonModule& script_;
  std::unique_ptr<HostedProvider> provider_;
  size_t tokens_ = 0;
  size_t turn_ = 0;
};

}  // namespace

void CheckReferences(const standin::Plugin& plugin, int collections) {
  setenv("PYTHONPATH", RUBRUF_SOURCE_DIR "/soak:" RUBRUF_SOURCE_DIR "/bench", 1);
  const standin::PythonModule script = LoadScript(plugin);
  Check check(plugin, script);
  if (check.References() == 0) throw std::runtime_error("this interpreter counts nothing; is PYTHONMALLOC set?");
  // Blocks go to slowly filling caches as well, but a loss takes one with every collection.
  const long allowed = script.Call("counts_references", "") == "True" ? 0 : collections - 1;
  std::istringstream samples(script.Call("samples", ""));
  bool grown = false;
  printf("%-30s %-46s %12s %10s %8s\n", "sample", "how", "collections", "tokens", "growth");
  for (std::string sample; std::getline(samples, sample);) {
    for (const Way way : {Way::kTaken, Way::kRefused, Way::kLeft}) {
      const long growth = check.Growth(sample, way, collections);
      const bool lost = std::labs(growth) > allowed;
      grown |= lost;
      printf("%-30s %-46s %12d %10zu %8ld%s\n", sample.c_str(), kWays[static_cast<int>(way)], collections,
             check.tokens(), growth, lost ? " !" : "");
      fflush(stdout);
    }
  }
  if (grown) throw std::runtime_error("references are lost, or given back twice, where the table has a mark (!)");
}

}  // namespace soak
