// planes.h: the one caller-side plane of the tests: rows with padding, guard
// bytes before the first row and (unless `tail` is 0) after the last, all
// filled with `fill`. With tail 0 the last row ends at the end of the allocation,
// so an overrun fails under AddressSanitizer; Intact() checks everything
// outside the rows' payload still holds the fill.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace lmxtest {

class GuardedPlane {
 public:
  GuardedPlane(int row_bytes, int rows, int padding = 0, uint8_t fill = 0xA5, int lead = 64, int tail = 64)
      : row_bytes_(row_bytes),
        rows_(rows),
        pitch_(row_bytes + padding),
        lead_(lead),
        fill_(fill),
        bytes_(static_cast<size_t>(lead + (rows > 0 ? pitch_ * (rows - 1) + row_bytes : 1) + tail), fill) {}

  uint8_t* data() { return bytes_.data() + lead_; }
  uint8_t* row(int r) { return data() + static_cast<ptrdiff_t>(r) * pitch_; }
  uint8_t* last_row() { return row(rows_ - 1); }
  uint8_t& at(int r, int byte) { return row(r)[byte]; }
  int pitch() const { return pitch_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  void Randomize(std::mt19937& rng) {
    for (int r = 0; r < rows_; ++r)
      for (int b = 0; b < row_bytes_; ++b) row(r)[b] = static_cast<uint8_t>(rng());
  }
  bool Intact() const {
    for (size_t i = 0; i < bytes_.size(); ++i) {
      const long offset = static_cast<long>(i) - lead_;
      const bool payload = offset >= 0 && offset / pitch_ < rows_ && offset % pitch_ < row_bytes_;
      if (!payload && bytes_[i] != fill_) return false;
    }
    return true;
  }
  // Payload equal to another plane's (padding may differ).
  bool SamePayload(GuardedPlane& other) {
    for (int r = 0; r < rows_; ++r)
      for (int b = 0; b < row_bytes_; ++b)
        if (row(r)[b] != other.row(r)[b]) return false;
    return true;
  }

 private:
  int row_bytes_, rows_, pitch_, lead_;
  uint8_t fill_;
  std::vector<uint8_t> bytes_;
};

}  // namespace lmxtest
