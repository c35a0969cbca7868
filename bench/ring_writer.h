// The benchmark's host: the eight functions over a ring buffer that copies each token, and nothing more.

#ifndef RUBRUF_BENCH_RING_WRITER_H_
#define RUBRUF_BENCH_RING_WRITER_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "host/tev_host.h"

// Tokens beyond the room of the ring overwrite the oldest, as if a reader had taken them.
struct tev_data_serializer_t {
  static constexpr size_t kRingBytes = size_t{1} << 18;

  std::array<unsigned char, kRingBytes> ring{};
  size_t next = 0;
  uint64_t tokens = 0;
  uint64_t bytes = 0;
  bool refuse_every_token_once = false;
  bool refused = false;  // the token at hand, already
};

#endif  // RUBRUF_BENCH_RING_WRITER_H_
