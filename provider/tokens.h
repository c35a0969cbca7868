// The vocabulary of the event stream.

#ifndef RUBRUF_PROVIDER_TOKENS_H_
#define RUBRUF_PROVIDER_TOKENS_H_

#include <cstdint>

// The type of a token; the value is what travels to the host. Numbers are 8 bytes in host byte order, texts are UTF-8
// without a terminating zero, all others have no payload.
enum python_event_type_t : uint32_t {
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
};

// The key ID of what stands under no key: the time stamp, the top level, the items of a top-level list.
constexpr uint32_t kNoKeyId = 0xFFFFFFFF;

#endif  // RUBRUF_PROVIDER_TOKENS_H_
