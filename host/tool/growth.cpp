// Detects steady growth in a series of measurements.

#include "host/tool/growth.h"

namespace standin {

Growth::Growth(size_t collections)
    : window_length_(collections < kLeast ? 0 : (collections - kWarmUp) / kWindows),
      skipped_(collections - window_length_ * kWindows) {}

void Growth::Add(int64_t amount) {
  ++seen_;
  if (window_length_ == 0 || seen_ < skipped_) return;
  const size_t in_windows = seen_ - skipped_;
  if (in_windows % window_length_ == 0) marks_.at(in_windows / window_length_) = amount;
}

std::optional<double> Growth::PerCollection() const {
  if (window_length_ == 0 || seen_ < skipped_ + window_length_ * kWindows) return std::nullopt;
  size_t grown = 0;
  for (size_t i = 0; i < kWindows; ++i) grown += marks_[i + 1] > marks_[i] ? 1 : 0;
  const int64_t total = marks_.back() - marks_.front();
  if (grown + 1 < kWindows || total <= 0) return std::nullopt;
  return static_cast<double>(total) / static_cast<double>(window_length_ * kWindows);
}

}  // namespace standin
