// fuzz_support.h: pieces shared by the fuzz targets.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "lmximage.h"

// A failed invariant: named on standard error, then a crash libFuzzer records.
#define Check(condition) \
  ((condition) ? (void)0 : (std::fprintf(stderr, "invariant failed: %s\n", #condition), std::abort()))

namespace lmxfuzz {

using Norvik::Lumetra::Image;

inline constexpr int32_t kFormats[] = {
    Image::PIXEL_FORMAT_YUY2,          Image::PIXEL_FORMAT_NV12,          Image::PIXEL_FORMAT_BGRA,
    Image::PIXEL_FORMAT_BGR,           Image::PIXEL_FORMAT_Y8,            Image::PIXEL_FORMAT_RGBA,
    Image::PIXEL_FORMAT_RGB,           Image::PIXEL_FORMAT_NV21,          Image::PIXEL_FORMAT_DEPTH,
    Image::PIXEL_FORMAT_DEPTH_NATIVE,  Image::PIXEL_FORMAT_DEPTH_FLOAT,   Image::PIXEL_FORMAT_Y16,
    Image::PIXEL_FORMAT_Y8_RELATIVE,   Image::PIXEL_FORMAT_ATTACHED_8BPP, Image::PIXEL_FORMAT_ATTACHED_2BPP,
    Image::PIXEL_FORMAT_DEPTH_CONFIDENCE, Image::PIXEL_FORMAT_ATTACHED_1BPP};

// A format key: a known format or any value, with no, a quarter-turn or any rotation bits.
inline int32_t ConsumeFormatKey(FuzzedDataProvider& input) {
  using Norvik::Lumetra::kPixelFormatMask, Norvik::Lumetra::kRotationMask, Norvik::Lumetra::kRotationShift;
  int32_t key = input.ConsumeBool() ? input.PickValueInArray(kFormats) : input.ConsumeIntegral<int32_t>();
  switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0: case 1: break;  // as it is
    case 2: key = (key & kPixelFormatMask) | (90 << kRotationShift); break;
    case 3: key = (key & kPixelFormatMask) | (180 << kRotationShift); break;
    case 4: key = (key & kPixelFormatMask) | (270 << kRotationShift); break;
    default: key = (key & kPixelFormatMask) | (input.ConsumeIntegral<int32_t>() & kRotationMask); break;
  }
  return key;
}

}  // namespace lmxfuzz
