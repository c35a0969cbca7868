// HostedProvider: calls the descriptor's callbacks and throws if they fail.

#include "host/standin/hosted_provider.h"

#include <cstdlib>
#include <stdexcept>

#include "utils/log/log.h"

namespace standin {

void SetLogLevel(const Plugin& plugin, std::optional<int> level) {
  if (!level && std::getenv("TEV_API_LOG_LEVEL")) return;
  plugin.Symbol<decltype(&::tev_init_stderr_logger)>("tev_init_stderr_logger")(level.value_or(TEV_LOG_WARNING));
}

HostedProvider::HostedProvider(const Plugin& plugin, const OptionList& options)
    : provider_(plugin.Construct(HostOptions(plugin, options).get())) {
  if (!provider_) {
    throw std::runtime_error(
        "construct_event_provider refused the options: the reason stands above, or comes with --log-level info");
  }
}

void HostedProvider::Initialize() {
  if (!provider_->initialize(provider_, &type_system_)) {
    throw std::runtime_error("initialize failed: the reason stands above");
  }
}

std::vector<std::string> HostedProvider::Sources() {
  const SourceArray array(provider_->get_sources(provider_));
  if (!array) throw std::runtime_error("get-sources failed: a script has no tag, or the reason stands above");
  std::vector<std::string> names;
  for (const auto& source : array->sources) names.push_back(source->tag);
  return names;
}

Collection HostedProvider::Collect(uint32_t source_index, tev_data_serializer_t* buffer) {
  return standin::Collect(provider_, source_index, buffer);
}

tev_progress_status_t HostedProvider::Progress(uint32_t source_index, tev_data_serializer_t* buffer) {
  return provider_->progress(provider_, source_index, buffer);
}

}  // namespace standin
