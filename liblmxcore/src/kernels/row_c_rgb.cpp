// Scalar rows of the channel reorders and of grey conversions.
#include "kernels/row.h"

namespace lmx {

void BGRAToRGBARow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 4, dst += 4) {
    const uint8_t c0 = src[0], c1 = src[1], c2 = src[2], c3 = src[3];  // in place is allowed
    dst[0] = c2;
    dst[1] = c1;
    dst[2] = c0;
    dst[3] = c3;
  }
}

void BGRToRGBRow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 3, dst += 3) {
    const uint8_t c0 = src[0], c1 = src[1], c2 = src[2];
    dst[0] = c2;
    dst[1] = c1;
    dst[2] = c0;
  }
}

void BGRAToBGRRow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 4, dst += 3) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
  }
}

void BGRAToRGBRow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 4, dst += 3) {
    dst[0] = src[2];
    dst[1] = src[1];
    dst[2] = src[0];
  }
}

void BGRToBGRARow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 3, dst += 4) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
    dst[3] = 255;
  }
}

void BGRToRGBARow_C(const uint8_t* src, uint8_t* dst, int width) {
  for (int x = 0; x < width; ++x, src += 3, dst += 4) {
    dst[0] = src[2];
    dst[1] = src[1];
    dst[2] = src[0];
    dst[3] = 255;
  }
}

namespace {

// The grey weights in blue-green-red and in red-green-blue order, so one loop
// serves both channel orders by taking the weights in memory order.
constexpr float kGreyWeightsBGR[3] = {0.114f, 0.587f, 0.299f};
constexpr float kGreyWeightsRGB[3] = {0.299f, 0.587f, 0.114f};

template <int kBpp>
void GreyRow(const uint8_t* src, uint8_t* dst, int width, const float (&w)[3]) {
  for (int x = 0; x < width; ++x, src += kBpp) {
    const float sum = w[0] * src[0] + w[1] * src[1] + w[2] * src[2] + 0.5f;
    const int grey = static_cast<int>(sum);
    dst[x] = static_cast<uint8_t>(grey > 255 ? 255 : grey);
  }
}

}  // namespace

void BGRAToY8Row_C(const uint8_t* src_bgra, uint8_t* dst_y, int width) {
  GreyRow<4>(src_bgra, dst_y, width, kGreyWeightsBGR);
}
void RGBAToY8Row_C(const uint8_t* src_rgba, uint8_t* dst_y, int width) {
  GreyRow<4>(src_rgba, dst_y, width, kGreyWeightsRGB);
}
void BGRToY8Row_C(const uint8_t* src_bgr, uint8_t* dst_y, int width) {
  GreyRow<3>(src_bgr, dst_y, width, kGreyWeightsBGR);
}
void RGBToY8Row_C(const uint8_t* src_rgb, uint8_t* dst_y, int width) {
  GreyRow<3>(src_rgb, dst_y, width, kGreyWeightsRGB);
}

void Y8ToBGRRow_C(const uint8_t* src_y, uint8_t* dst_bgr, int width) {
  for (int x = 0; x < width; ++x, dst_bgr += 3) dst_bgr[0] = dst_bgr[1] = dst_bgr[2] = src_y[x];
}

}  // namespace lmx
