// The plug-in's entry, its descriptor and the callbacks through which the host drives the provider.

#include "provider/entry.h"

#include <memory>

#include "provider/catch_bad_alloc.h"
#include "provider/host_log.h"
#include "provider/provider.h"
#include "provider/python_lock.h"
#include "provider/script_output.h"
#include "utils/log/log.h"

namespace {

tev_event_provider_t descriptor;

PythonEventProvider* ProviderOf(tev_event_provider_t* provider) {
  return static_cast<PythonEventProvider*>(provider->context);
}

// What each callback begins and ends with: the interpreter's lock, and the lines of scripts that are due.
class Callback {
 public:
  Callback() = default;
  ~Callback() {
    script_output::EndLines();
    host_log::Flush();
  }
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;

 private:
  PythonLock lock_;  // given back last
};

struct DestroySourceArray {
  void operator()(tev_source_array_t* array) const { tev_destroy_source_array(array); }
};
using SourceArray = std::unique_ptr<tev_source_array_t, DestroySourceArray>;

bool AppendSource(tev_source_array_t* array, const std::string& tag) {
  tev_source_t* source = tev_create_default_source(tag.c_str(), tag.size());
  if (source == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] cannot create default source");
    return false;
  }
  if (!tev_source_array_append(array, source)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] cannot append default source");
    return false;
  }
  return true;
}

tev_source_array_t* CreateSources(PythonEventProvider* provider) {
  SourceArray array(tev_create_source_array());
  if (!array) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] [%s] cannot allocate sources", "python_event_provider_get_sources");
    return nullptr;
  }
  const size_t count = provider->CountServedScripts();
  for (size_t index = 0; index < count; ++index) {
    const std::string& tag = provider->GetTagName(static_cast<unsigned char>(index));
    if (tag.empty() || !AppendSource(array.get(), tag)) return nullptr;
  }
  provider->LogConfiguration();
  return array.release();
}

uint32_t python_event_provider_noop_1() { return 1; }

tev_progress_status_t python_event_provider_progress(tev_event_provider_t* provider, uint32_t source_index,
                                                     tev_data_serializer_t* serializer) {
  const Callback callback;
  return CatchBadAlloc(TEV_PROGRESS_ERROR, [=] {
    return ProviderOf(provider)->Progress(serializer, static_cast<unsigned char>(source_index));
  });
}

uint32_t python_event_provider_noop_2() { return 1; }

void python_event_provider_finalize(tev_event_provider_t* provider) {
  const Callback callback;
  ProviderOf(provider)->Finalize(provider);
}

tev_source_array_t* python_event_provider_get_sources(tev_event_provider_t* provider) {
  const Callback callback;
  return CatchBadAlloc<tev_source_array_t*>(nullptr, [=] { return CreateSources(ProviderOf(provider)); });
}

// The numbers are fixed; their meaning is known to the host alone.
uint32_t python_event_provider_fill_record(void* /*unused*/, void* /*unused*/, void* record) {
  auto* filled = static_cast<tev_provider_record_t*>(record);
  filled->kind = 7;
  filled->reserved_1 = 0;
  filled->reserved_2 = 0;
  return 1;
}

}  // namespace

bool python_event_provider_initialize(tev_event_provider_t* provider, tev_type_system_t* type_system) {
  const Callback callback;
  return ProviderOf(provider)->Initialize(provider, type_system);
}

tev_event_provider_t* construct_event_provider(tev_custom_options* options) {
  static PythonEventProvider provider;
  const Callback callback;
  if (!provider.ReadOpts(options)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not read options");
    return nullptr;
  }
  descriptor.schema_number = 1;
  descriptor.name = "python_provider";
  descriptor.description = "Python event provider";
  descriptor.context = &provider;
  descriptor.initialize = python_event_provider_initialize;
  descriptor.noop_1 = python_event_provider_noop_1;
  descriptor.progress = python_event_provider_progress;
  descriptor.noop_2 = python_event_provider_noop_2;
  descriptor.finalize = python_event_provider_finalize;
  descriptor.get_sources = python_event_provider_get_sources;
  descriptor.fill_record = python_event_provider_fill_record;
  return &descriptor;
}
