// Scalar rows between packed 4:2:2 luma-chroma (YUY2), semi-planar 4:2:0 (NV12)
// and colour. Formulas in ycc_math.h.
#include "kernels/row.h"
#include "kernels/ycc_math.h"

namespace lmx {
namespace {

// Channel positions of a colour layout: red and blue byte, bytes per pixel.
struct Layout {
  int r, b, bpp;
};
constexpr Layout kBGRA{2, 0, 4};
constexpr Layout kRGBA{0, 2, 4};
constexpr Layout kBGR{2, 0, 3};
constexpr Layout kRGB{0, 2, 3};

template <Layout L, bool kAlpha>
inline void StorePixel(uint8_t* dst, ycc::Rgb c, uint8_t alpha) {
  dst[L.r] = c.r;
  dst[1] = c.g;
  dst[L.b] = c.b;
  if constexpr (kAlpha) dst[3] = alpha;
}

template <Layout L, bool kAlpha>
void DecodeRow(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha) {
  int x = 0;
  for (; x + 1 < width; x += 2) {
    const int32_t u = src[1] - 128;
    const int32_t v = src[3] - 128;
    StorePixel<L, kAlpha>(dst, ycc::Decode(src[0], u, v), alpha);
    StorePixel<L, kAlpha>(dst + L.bpp, ycc::Decode(src[2], u, v), alpha);
    src += 4;
    dst += 2 * L.bpp;
  }
  if (x < width) {
    // Lone last pixel: its own luma, the U byte after it, the preceding pair's V.
    StorePixel<L, kAlpha>(dst, ycc::Decode(src[0], src[1] - 128, src[-1] - 128), alpha);
  }
}

template <Layout L>
void EncodeRow(const uint8_t* src, uint8_t* dst, int width) {
  int x = 0;
  for (; x + 1 < width; x += 2) {
    const uint8_t* p0 = src;
    const uint8_t* p1 = src + L.bpp;
    const int32_t r = p0[L.r] + p1[L.r];
    const int32_t g = p0[1] + p1[1];
    const int32_t b = p0[L.b] + p1[L.b];
    dst[0] = ycc::EncodeY(p0[L.r], p0[1], p0[L.b]);
    dst[1] = ycc::EncodeU<9>(r, g, b);
    dst[2] = ycc::EncodeY(p1[L.r], p1[1], p1[L.b]);
    dst[3] = ycc::EncodeV<9>(r, g, b);
    src += 2 * L.bpp;
    dst += 4;
  }
  if (x < width) {
    dst[0] = ycc::EncodeY(src[L.r], src[1], src[L.b]);
    dst[1] = ycc::EncodeU<8>(src[L.r], src[1], src[L.b]);
  }
}

}  // namespace

void YUY2ToBGRARow_C(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha) {
  DecodeRow<kBGRA, true>(src_yuy2, dst_bgra, width, alpha);
}
void YUY2ToRGBARow_C(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha) {
  DecodeRow<kRGBA, true>(src_yuy2, dst_rgba, width, alpha);
}
void YUY2ToBGRRow_C(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width) {
  DecodeRow<kBGR, false>(src_yuy2, dst_bgr, width, 0);
}
void YUY2ToRGBRow_C(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width) {
  DecodeRow<kRGB, false>(src_yuy2, dst_rgb, width, 0);
}

void YUY2ToY8Row_C(const uint8_t* src_yuy2, uint8_t* dst_y, int width) {
  for (int x = 0; x < width; ++x) dst_y[x] = src_yuy2[2 * x];
}

void YUY2ToUVRow_C(const uint8_t* src_yuy2_0, const uint8_t* src_yuy2_1, uint8_t* dst_uv, int width) {
  // The chroma bytes sit at the odd offsets; UV byte x is YUY2 byte 2x + 1.
  for (int x = 0; x < width; ++x) {
    dst_uv[x] = static_cast<uint8_t>((src_yuy2_0[2 * x + 1] + src_yuy2_1[2 * x + 1] + 1) >> 1);
  }
}

void NV12ToYUY2Row_C(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst_yuy2, int width) {
  for (int i = 0; i < width / 2; ++i) {
    dst_yuy2[4 * i + 0] = src_y[2 * i];
    dst_yuy2[4 * i + 1] = src_uv[2 * i];
    dst_yuy2[4 * i + 2] = src_y[2 * i + 1];
    dst_yuy2[4 * i + 3] = src_uv[2 * i + 1];
  }
}

void BGRAToYUY2Row_C(const uint8_t* src_bgra, uint8_t* dst_yuy2, int width) {
  EncodeRow<kBGRA>(src_bgra, dst_yuy2, width);
}
void RGBAToYUY2Row_C(const uint8_t* src_rgba, uint8_t* dst_yuy2, int width) {
  EncodeRow<kRGBA>(src_rgba, dst_yuy2, width);
}
void BGRToYUY2Row_C(const uint8_t* src_bgr, uint8_t* dst_yuy2, int width) { EncodeRow<kBGR>(src_bgr, dst_yuy2, width); }
void RGBToYUY2Row_C(const uint8_t* src_rgb, uint8_t* dst_yuy2, int width) { EncodeRow<kRGB>(src_rgb, dst_yuy2, width); }

}  // namespace lmx
