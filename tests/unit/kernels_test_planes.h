// kernels_test_planes.h: image planes with guard bytes for the kernel tests.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace kerneltest {

// A plane of `rows` rows of `row_bytes` bytes, `padding` spare bytes after each
// row, and guard bytes before and after the whole plane. Everything starts as
// `fill`; Intact() tells whether the guards and the row padding still hold it.
class GuardedPlane {
 public:
  static constexpr int kGuard = 64;

  GuardedPlane(int row_bytes, int rows, int padding = 0, uint8_t fill = 0xA5)
      : row_bytes_(row_bytes), rows_(rows), pitch_(row_bytes + padding), fill_(fill),
        bytes_(static_cast<size_t>(2 * kGuard + pitch_ * rows), fill) {}

  uint8_t* data() { return bytes_.data() + kGuard; }
  uint8_t* row(int r) { return data() + r * pitch_; }
  uint8_t* last_row() { return row(rows_ - 1); }
  int pitch() const { return pitch_; }
  uint8_t& at(int r, int byte) { return row(r)[byte]; }

  void Randomize(std::mt19937& rng) {
    for (int r = 0; r < rows_; ++r)
      for (int b = 0; b < row_bytes_; ++b) row(r)[b] = static_cast<uint8_t>(rng());
  }

  // Bytes outside the rows' payload untouched.
  bool Intact() const {
    for (size_t i = 0; i < bytes_.size(); ++i) {
      const long offset = static_cast<long>(i) - kGuard;
      const bool payload = offset >= 0 && offset < static_cast<long>(pitch_) * rows_ && offset % pitch_ < row_bytes_;
      if (!payload && bytes_[i] != fill_) return false;
    }
    return true;
  }

  // Payload bytes equal to another plane's (padding may differ).
  bool SamePayload(GuardedPlane& other) {
    for (int r = 0; r < rows_; ++r)
      for (int b = 0; b < row_bytes_; ++b)
        if (row(r)[b] != other.row(r)[b]) return false;
    return true;
  }

 private:
  int row_bytes_;
  int rows_;
  int pitch_;
  uint8_t fill_;
  std::vector<uint8_t> bytes_;
};

}  // namespace kerneltest
