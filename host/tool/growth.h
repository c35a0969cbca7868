// Tells memory that keeps growing from memory that is filled once.

#ifndef RUBRUF_HOST_TOOL_GROWTH_H_
#define RUBRUF_HOST_TOOL_GROWTH_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace standin {

// Watches an amount over a number of collections. Its own size is constant, so that it adds nothing to what it watches.
class Growth {
 public:
  static constexpr size_t kLeast = 20;  // collections from which growth can be told

  explicit Growth(size_t collections);

  // The amount after the next collection.
  void Add(int64_t amount);

  // The growth per collection of an amount that keeps growing: in all but one of the windows, of equal length, into
  // which the collections after the first few are divided. A cache that fills up does not, nor does an amount that goes
  // up and down. Null as well while collections are missing.
  std::optional<double> PerCollection() const;

 private:
  static constexpr size_t kWarmUp = 5;  // the first collections fill caches and pools
  static constexpr size_t kWindows = 10;

  size_t window_length_;
  size_t skipped_;
  size_t seen_ = 0;
  // At the end of the skipped collections, and of each window.
  std::array<int64_t, kWindows + 1> marks_{};
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_GROWTH_H_
