// The handle types behind the opaque names of the host's interface, with what tests look at and turn on them.

#ifndef RUBRUF_HOST_STANDIN_HANDLES_H_
#define RUBRUF_HOST_STANDIN_HANDLES_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/standin/token.h"
#include "host/tev_host.h"

namespace standin {

using Clock = std::chrono::steady_clock;

// The number that the type system gives to every schema: neither 0 nor the schema's own number.
constexpr uint8_t kSchemaId = 0x5A;

// Which call of a host function is to fail, counted from now: 1 is the next one, 0 none. A fault strikes once.
struct Faults {
  int create_source_array = 0;
  int create_default_source = 0;
  int source_array_append = 0;
  int type_system_add_schema = 0;
  int opaque_events_create = 0;
};
inline Faults faults;

// Counts the handles of one type that are alive: tev_source_t::live and so on.
template <class Handle>
struct Counted {
  inline static int live = 0;

  Counted() { ++live; }
  ~Counted() { --live; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
};

// What a write brought besides its token.
struct WriteContext {
  const tev_schema_t* schema;  // the writer's
  uint8_t schema_id;
  std::array<uint8_t, 16> app_id;
  uint64_t reserved;
};

}  // namespace standin

struct tev_source_t : standin::Counted<tev_source_t> {
  std::string tag;
};

struct tev_source_array_t : standin::Counted<tev_source_array_t> {
  std::vector<std::unique_ptr<tev_source_t>> sources;
};

struct tev_schema_t {
  std::string name;
  uint32_t number;
};

struct tev_type_system_t {
  std::deque<tev_schema_t> schemas;  // a deque: a schema's handle stays good when others follow
};

struct tev_opaque_events_t : standin::Counted<tev_opaque_events_t> {
  const tev_schema_t* schema = nullptr;
};

// The bounded buffer into which progress calls write.
struct tev_data_serializer_t {
  explicit tev_data_serializer_t(size_t capacity_bytes = std::numeric_limits<size_t>::max())
      : capacity(capacity_bytes) {}

  // Takes the token. False: it does not fit, or `refuse` says so, and nothing has changed but `oversized`.
  bool Write(standin::Token token);
  // Hands out the tokens taken since the last call, and empties the buffer.
  std::vector<standin::Token> Drain();

  const size_t capacity;
  size_t used = 0;
  std::vector<standin::Token> tokens;
  // The token of the last write, when it is larger than the whole buffer: no draining will make it fit.
  std::optional<standin::Token> oversized;
  // Asked about each token that would fit; null refuses none.
  std::function<bool(const standin::Token&)> refuse;
  // When the first token came, taken or refused, since this was last reset.
  std::optional<standin::Clock::time_point> first_write;
  // Of the last write, taken or refused.
  std::optional<standin::WriteContext> last_write;
};

namespace standin {

struct DestroySources {
  void operator()(tev_source_array_t* array) const { tev_destroy_source_array(array); }
};
// What `get_sources` returned; null when it failed.
using SourceArray = std::unique_ptr<tev_source_array_t, DestroySources>;

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_HANDLES_H_
