// The tokens of the event stream: their types, and the word in which a type and a key ID travel to the host's writer.
//
// For C and C++: the plug-in writes with it, and a host reads with it. docs/token-stream.md tells the grammar.

#ifndef RUBRUF_PROVIDER_TOKENS_H_
#define RUBRUF_PROVIDER_TOKENS_H_

#include <stdint.h>

// The type of a token. Numbers are 8 bytes in host byte order, texts are UTF-8 without a terminating zero, all others
// have no payload.
typedef enum python_event_type_t {
  PYTHON_EVENT_KEY_NAME = 0,
  PYTHON_EVENT_STRING = 1,
  PYTHON_EVENT_DOUBLE = 2,
  PYTHON_EVENT_LONG = 3,
  PYTHON_EVENT_DICT_START = 4,
  PYTHON_EVENT_DICT_END = 5,
  PYTHON_EVENT_LIST_START = 6,
  PYTHON_EVENT_LIST_END = 7,
  PYTHON_EVENT_FALSE = 8,
  PYTHON_EVENT_TRUE = 9,
  PYTHON_EVENT_NEW_COLLECTION = 10,  // microseconds since the Unix epoch, unsigned
} python_event_type_t;

// The key ID of what stands under no key: the time stamp, the top level, the items of a top-level list.
#define PYTHON_EVENT_NO_KEY UINT32_C(0xFFFFFFFF)

// The word `type_and_key` of a write: the type in the high 32 bits, the key ID in the low ones.
static inline uint64_t python_event_pack(uint32_t type, uint32_t key_id) { return (uint64_t)type << 32 | key_id; }
static inline uint32_t python_event_type(uint64_t type_and_key) { return (uint32_t)(type_and_key >> 32); }
static inline uint32_t python_event_key_id(uint64_t type_and_key) { return (uint32_t)type_and_key; }

#endif  // RUBRUF_PROVIDER_TOKENS_H_
