// Generators of the demo's frames and sound.
#include "demo_content.h"

#include <algorithm>
#include <cmath>

#include "lmximage.h"

namespace lmxtool {

namespace {

using Image = Norvik::Lumetra::Image;

// Studio-range BT.601 encoding in 8.8 fixed point.
uint8_t LumaOf(int r, int g, int b) { return static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16); }
uint8_t BlueDiffOf(int r, int g, int b) {
  return static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
}
uint8_t RedDiffOf(int r, int g, int b) { return static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128); }

struct Rgb {
  int r, g, b;
};

Rgb GradientAt(int32_t x, int32_t y, int32_t width, int32_t height) {
  const int r = x * 255 / std::max(width - 1, 1);
  const int g = y * 255 / std::max(height - 1, 1);
  return {r, g, 255 - (r + g) / 2};
}

}  // namespace

Frame ColourBarsYUY2(int32_t width, int32_t height) {
  static constexpr Rgb kBars[8] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                                   {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
  Frame frame{width, height, Image::PIXEL_FORMAT_YUY2, {}};
  frame.bytes.resize(static_cast<size_t>(width) * height * 2);
  for (int32_t y = 0; y < height; ++y) {
    uint8_t* row = frame.bytes.data() + static_cast<size_t>(y) * width * 2;
    for (int32_t x = 0; x < width; x += 2) {
      const Rgb c = kBars[std::min(x * 8 / width, 7)];
      const uint8_t luma = LumaOf(c.r, c.g, c.b);
      row[x * 2 + 0] = luma;
      row[x * 2 + 1] = BlueDiffOf(c.r, c.g, c.b);
      row[x * 2 + 2] = luma;
      row[x * 2 + 3] = RedDiffOf(c.r, c.g, c.b);
    }
  }
  return frame;
}

Frame GradientNV12(int32_t width, int32_t height) {
  Frame frame{width, height, Image::PIXEL_FORMAT_NV12, {}};
  const size_t lumaSize = static_cast<size_t>(width) * height;
  frame.bytes.resize(lumaSize + lumaSize / 2);
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) {
      const Rgb c = GradientAt(x, y, width, height);
      frame.bytes[static_cast<size_t>(y) * width + x] = LumaOf(c.r, c.g, c.b);
    }
  // One chroma pair per 2x2 block, taken at the block's centre.
  for (int32_t y = 0; y < height / 2; ++y)
    for (int32_t x = 0; x < width / 2; ++x) {
      const Rgb c = GradientAt(x * 2 + 1, y * 2 + 1, width, height);
      uint8_t* pair = frame.bytes.data() + lumaSize + static_cast<size_t>(y) * width + x * 2;
      pair[0] = BlueDiffOf(c.r, c.g, c.b);
      pair[1] = RedDiffOf(c.r, c.g, c.b);
    }
  return frame;
}

Frame DepthRamp(int32_t width, int32_t height, uint16_t nearMm, uint16_t farMm) {
  Frame frame{width, height, Image::PIXEL_FORMAT_DEPTH, {}};
  frame.bytes.resize(static_cast<size_t>(width) * height * 2);
  auto* depth = reinterpret_cast<uint16_t*>(frame.bytes.data());
  const double cx = width * 0.25, cy = height * 0.25, radius = std::min(width, height) * 0.12;
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) {
      double mm = nearMm + (farMm - nearMm) * static_cast<double>(x) / std::max(width - 1, 1);
      if (std::hypot(x - cx, y - cy) < radius) mm = nearMm;
      depth[static_cast<size_t>(y) * width + x] = static_cast<uint16_t>(std::lround(mm));
    }
  return frame;
}

Sound TwoTones(int32_t rate, double seconds, double leftHz, double rightHz) {
  Sound sound{rate, 2, {}};
  const auto frames = static_cast<size_t>(std::lround(rate * seconds));
  sound.samples.resize(frames * 2);
  constexpr double kTwoPi = 6.283185307179586;
  for (size_t i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    sound.samples[i * 2] = static_cast<int16_t>(std::lround(16383.0 * std::sin(kTwoPi * leftHz * t)));
    sound.samples[i * 2 + 1] = static_cast<int16_t>(std::lround(16383.0 * std::sin(kTwoPi * rightHz * t)));
  }
  return sound;
}

}  // namespace lmxtool
