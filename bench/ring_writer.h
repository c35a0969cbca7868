// The benchmark's host: the eight functions over a ring buffer. A write only copies its token.

#ifndef RUBRUF_BENCH_RING_WRITER_H_
#define RUBRUF_BENCH_RING_WRITER_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "host/tev_host.h"

// When the ring is full, new tokens overwrite the oldest, as if a reader had taken those.
struct tev_data_serializer_t {
  static constexpr size_t kRingBytes = size_t{1} << 18;

  std::array<unsigned char, kRingBytes> ring{};
  size_t next = 0;
  uint64_t tokens = 0;
  uint64_t bytes = 0;
  bool refuse_every_token_once = false;
  bool refused = false;  // the current token has been refused already
};

#endif  // RUBRUF_BENCH_RING_WRITER_H_
