// The host's programming interface: the functions that the plug-in calls, and the descriptor that it hands out.
//
// Conventions:
//  1. The host implements every function declared here. The plug-in does not link them: the host process supplies the
//     symbols when it loads the plug-in.
//  2. The plug-in never looks into a handle. Whoever creates a handle destroys it, unless a comment says otherwise.
//  3. Texts are NUL-terminated and borrowed for the length of the call.
//  4. Every call is made on the one thread that drives the provider.

#ifndef RUBRUF_HOST_TEV_HOST_H_
#define RUBRUF_HOST_TEV_HOST_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tev_type_system_t tev_type_system_t;
typedef struct tev_data_serializer_t tev_data_serializer_t;
typedef struct tev_schema_t tev_schema_t;
typedef struct tev_opaque_events_t tev_opaque_events_t;
typedef struct tev_source_t tev_source_t;
typedef struct tev_source_array_t tev_source_array_t;

// The result of a progress call. Inside the plug-in the same type is the status of writing one token.
typedef uint32_t tev_progress_status_t;
#define TEV_PROGRESS_DONE UINT32_C(0)             // progress: the collection is complete; token: it was written
#define TEV_PROGRESS_REFUSED UINT32_C(1)          // the writer refused a token; the next progress call writes it again
#define TEV_PROGRESS_DONE_FORCE_SYNC UINT32_C(2)  // progress: complete, and the script asks for a synchronisation
#define TEV_PROGRESS_ERROR UINT32_C(0xFFFFFFFF)   // progress: the collection failed; token: it could not be formed

// The record that `fill_record` fills: 14 bytes, without padding before the last field.
typedef struct tev_provider_record_t {
  uint64_t kind;
  uint32_t reserved_1;
  uint16_t reserved_2;
} tev_provider_record_t;

// The provider descriptor: the plug-in's name, and the callbacks through which the host drives it. The plug-in owns the
// descriptor. It is valid until the library is unloaded. Every callback finds its object in `context`.
typedef struct tev_event_provider_t {
  uint32_t schema_number;
  const char* name;
  const char* description;
  void* context;
  bool (*initialize)(struct tev_event_provider_t* provider, tev_type_system_t* type_system);
  void* reserved_1;
  uint32_t (*noop_1)(void);
  // Runs or resumes one collection. Source indexes are positions in the array that `get_sources` returned.
  tev_progress_status_t (*progress)(struct tev_event_provider_t* provider, uint32_t source_index,
                                    tev_data_serializer_t* serializer);
  uint32_t (*noop_2)(void);
  void (*finalize)(struct tev_event_provider_t* provider);
  // A new array, owned by the host; null on failure.
  tev_source_array_t* (*get_sources)(struct tev_event_provider_t* provider);
  uint32_t (*fill_record)(void* unused_1, void* unused_2, void* record);
  void* reserved_2[5];
} tev_event_provider_t;

// A new, empty array; null on failure.
tev_source_array_t* tev_create_source_array(void);
// A new source named `tag` (`length` bytes before its terminating zero); null on failure.
tev_source_t* tev_create_default_source(const char* tag, size_t length);
// Hands `source` over to `array`. False on failure: the plug-in then destroys the array but not `source`, because the
// interface has no function that destroys a source.
bool tev_source_array_append(tev_source_array_t* array, tev_source_t* source);
// Destroys the array and the sources in it.
void tev_destroy_source_array(tev_source_array_t* array);

// Registers a schema and writes its one-byte number through `schema_id`. The type system owns the schema. Null on
// failure.
tev_schema_t* tev_type_system_add_schema(tev_type_system_t* type_system, const char* name, uint32_t schema_number,
                                         uint8_t* schema_id);

// A new writer of opaque events of `schema`; null on failure.
tev_opaque_events_t* tev_opaque_events_create(tev_schema_t* schema);
void tev_opaque_events_delete(tev_opaque_events_t* writer);
// Writes one token. `type_and_key` is packed as in provider/tokens.h; `app_id` points to 16 bytes; `payload` is null if
// the token has no payload, and `size` is then 0. False: the token was refused, and nothing was written.
bool tev_opaque_events_write(tev_opaque_events_t* writer, tev_data_serializer_t* serializer, uint8_t schema_id,
                             const uint8_t* app_id, uint64_t type_and_key, uint64_t reserved, const void* payload,
                             uint32_t size);

#ifdef __cplusplus
}  // extern "C"

// Hosts are compiled with this layout: 64-bit pointers, and no field may move.
static_assert(offsetof(tev_event_provider_t, schema_number) == 0);
static_assert(offsetof(tev_event_provider_t, name) == 8);
static_assert(offsetof(tev_event_provider_t, description) == 16);
static_assert(offsetof(tev_event_provider_t, context) == 24);
static_assert(offsetof(tev_event_provider_t, initialize) == 32);
static_assert(offsetof(tev_event_provider_t, noop_1) == 48);
static_assert(offsetof(tev_event_provider_t, progress) == 56);
static_assert(offsetof(tev_event_provider_t, noop_2) == 64);
static_assert(offsetof(tev_event_provider_t, finalize) == 72);
static_assert(offsetof(tev_event_provider_t, get_sources) == 80);
static_assert(offsetof(tev_event_provider_t, fill_record) == 88);
static_assert(sizeof(tev_event_provider_t) == 136);
static_assert(offsetof(tev_provider_record_t, reserved_1) == 8);
static_assert(offsetof(tev_provider_record_t, reserved_2) == 12);
#endif

#endif  // RUBRUF_HOST_TEV_HOST_H_
