// HostedProvider: the plug-in's provider, from its construction to its finalization.

#ifndef RUBRUF_HOST_STANDIN_HOSTED_PROVIDER_H_
#define RUBRUF_HOST_STANDIN_HOSTED_PROVIDER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/standin/collector.h"
#include "host/standin/handles.h"
#include "host/standin/host_options.h"
#include "host/standin/plugin.h"

namespace standin {

// Sets the plug-in's log level. Without a level, TEV_API_LOG_LEVEL decides; if that is not set, warnings and errors are
// shown.
void SetLogLevel(const Plugin& plugin, std::optional<int> level);

// A plug-in has one provider, so only one object may exist at a time. All operations except Collect and Progress throw
// std::runtime_error if the plug-in fails; the plug-in logs the reason.
class HostedProvider {
 public:
  HostedProvider(const Plugin& plugin, const OptionList& options);
  ~HostedProvider() { provider_->finalize(provider_); }
  HostedProvider(const HostedProvider&) = delete;
  HostedProvider& operator=(const HostedProvider&) = delete;

  void Initialize();
  // The names of the sources, in order of their indexes.
  std::vector<std::string> Sources();
  Collection Collect(uint32_t source_index, tev_data_serializer_t* buffer);
  // One call of progress.
  tev_progress_status_t Progress(uint32_t source_index, tev_data_serializer_t* buffer);

 private:
  tev_event_provider_t* provider_;
  tev_type_system_t type_system_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_HOSTED_PROVIDER_H_
