// The stand-in host's types behind the opaque handles of the host's interface, with counters and faults for tests.

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

// The number that the type system gives to every schema. It differs from 0 and from the schema's own number.
constexpr uint8_t kSchemaId = 0x5A;

// Which call of each host function fails, counted from now: 1 is the next call, 0 none. Each fault happens once.
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

// The arguments of a write besides its token.
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

  // Takes the token. False if it does not fit or `refuse` returns true; only `oversized` has changed then.
  bool Write(standin::Token token);
  // Hands out the tokens taken since the last call, and empties the buffer.
  std::vector<standin::Token> Drain();

  const size_t capacity;
  size_t used = 0;
  std::vector<standin::Token> tokens;
  // The token of the last write, if it is larger than the whole buffer and so will never fit.
  std::optional<standin::Token> oversized;
  // Called for each token that would fit; true refuses it. Null refuses none.
  std::function<bool(const standin::Token&)> refuse;
  // The time of the first write, taken or refused, since this was last reset.
  std::optional<standin::Clock::time_point> first_write;
  // The other arguments of the last write, taken or refused.
  std::optional<standin::WriteContext> last_write;
};

namespace standin {

struct DestroySources {
  void operator()(tev_source_array_t* array) const { tev_destroy_source_array(array); }
};
// The result of `get_sources`; null if it failed.
using SourceArray = std::unique_ptr<tev_source_array_t, DestroySources>;

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_HANDLES_H_
