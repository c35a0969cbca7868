// The benchmark's host: the eight functions over a ring buffer.

#include "bench/ring_writer.h"

#include <algorithm>
#include <cstring>

struct tev_source_array_t {};
struct tev_source_t {};
struct tev_schema_t {};
struct tev_opaque_events_t {};

namespace {

tev_source_array_t the_array;
tev_source_t the_source;
tev_schema_t the_schema;
tev_opaque_events_t the_writer;

void Append(tev_data_serializer_t* serializer, const void* data, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const size_t part = std::min(size, serializer->kRingBytes - serializer->next);
    memcpy(serializer->ring.data() + serializer->next, bytes, part);
    serializer->next = (serializer->next + part) % serializer->kRingBytes;
    bytes += part;
    size -= part;
  }
}

}  // namespace

tev_source_array_t* tev_create_source_array() { return &the_array; }
tev_source_t* tev_create_default_source(const char* /*tag*/, size_t /*length*/) { return &the_source; }
bool tev_source_array_append(tev_source_array_t* /*array*/, tev_source_t* /*source*/) { return true; }
void tev_destroy_source_array(tev_source_array_t* /*array*/) {}
tev_schema_t* tev_type_system_add_schema(tev_type_system_t* /*type_system*/, const char* /*name*/, uint32_t /*number*/,
                                         uint8_t* schema_id) {
  *schema_id = 1;
  return &the_schema;
}
tev_opaque_events_t* tev_opaque_events_create(tev_schema_t* /*schema*/) { return &the_writer; }
void tev_opaque_events_delete(tev_opaque_events_t* /*writer*/) {}

bool tev_opaque_events_write(tev_opaque_events_t* /*writer*/, tev_data_serializer_t* serializer, uint8_t /*schema_id*/,
                             const uint8_t* /*app_id*/, uint64_t type_and_key, uint64_t /*reserved*/,
                             const void* payload, uint32_t size) {
  if (serializer->refuse_every_token_once) {
    serializer->refused = !serializer->refused;
    if (serializer->refused) return false;
  }
  const uint64_t header[2] = {type_and_key, size};
  Append(serializer, header, sizeof header);
  Append(serializer, payload, size);
  ++serializer->tokens;
  serializer->bytes += sizeof header + size;
  return true;
}
