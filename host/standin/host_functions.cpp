// The stand-in host's versions of the eight functions that the plug-in calls, and the buffer that they fill.

#include <algorithm>
#include <utility>

#include "host/standin/handles.h"
#include "host/tev_host.h"

using standin::faults;
using standin::Token;

namespace {

// Counts one call towards a fault. True if this call fails.
bool Fails(int& calls_left) { return calls_left > 0 && --calls_left == 0; }

}  // namespace

tev_source_array_t* tev_create_source_array() {
  return Fails(faults.create_source_array) ? nullptr : new tev_source_array_t;
}

tev_source_t* tev_create_default_source(const char* tag, size_t length) {
  if (Fails(faults.create_default_source)) return nullptr;
  auto source = std::make_unique<tev_source_t>();
  source->tag.assign(tag, length);
  return source.release();
}

bool tev_source_array_append(tev_source_array_t* array, tev_source_t* source) {
  if (Fails(faults.source_array_append)) return false;
  array->sources.emplace_back(source);
  return true;
}

void tev_destroy_source_array(tev_source_array_t* array) { delete array; }

tev_schema_t* tev_type_system_add_schema(tev_type_system_t* type_system, const char* name, uint32_t schema_number,
                                         uint8_t* schema_id) {
  if (Fails(faults.type_system_add_schema)) return nullptr;
  *schema_id = standin::kSchemaId;
  return &type_system->schemas.emplace_back(tev_schema_t{name, schema_number});
}

tev_opaque_events_t* tev_opaque_events_create(tev_schema_t* schema) {
  if (Fails(faults.opaque_events_create)) return nullptr;
  auto writer = std::make_unique<tev_opaque_events_t>();
  writer->schema = schema;
  return writer.release();
}

void tev_opaque_events_delete(tev_opaque_events_t* writer) { delete writer; }

bool tev_opaque_events_write(tev_opaque_events_t* writer, tev_data_serializer_t* serializer, uint8_t schema_id,
                             const uint8_t* app_id, uint64_t type_and_key, uint64_t reserved, const void* payload,
                             uint32_t size) {
  if (serializer == nullptr) return false;
  auto& context = serializer->last_write.emplace(standin::WriteContext{writer->schema, schema_id, {}, reserved});
  std::copy_n(app_id, context.app_id.size(), context.app_id.begin());
  Token token{python_event_type(type_and_key), python_event_key_id(type_and_key)};
  if (size > 0) token.payload.assign(static_cast<const char*>(payload), size);
  return serializer->Write(std::move(token));
}

bool tev_data_serializer_t::Write(Token token) {
  if (!first_write) first_write = standin::Clock::now();
  const size_t bytes = token.bytes();
  if (bytes > capacity) {
    oversized = std::move(token);
    return false;
  }
  oversized.reset();
  if (bytes > capacity - used || (refuse && refuse(token))) return false;
  used += bytes;
  tokens.push_back(std::move(token));
  return true;
}

std::vector<Token> tev_data_serializer_t::Drain() {
  used = 0;
  return std::exchange(tokens, {});
}
