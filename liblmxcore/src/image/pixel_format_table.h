// pixel_format_table.h: what the library knows of each pixel format, and of the
// format keys (pixel format plus rotation in degrees << 21).
//
// One table row per built-in format: code, printed name, plane count, bytes per
// pixel of plane 0, and its kind. Two-plane formats have 1-byte pixels in both
// planes and a second plane of width x (height / 2). Formats not in the table have
// no layout. The conversions between formats are the router's table
// (coreaccel_baseimage_route.cpp).
#pragma once

#include <cstdint>

#include "lmximage.h"

namespace lmx {

struct PixelFormatTraits {
  int32_t code;
  const wchar_t* name;
  int32_t planes;
  int32_t bytes_per_pixel;
  // Side data kept beside the content: never made stale by a write, acquired
  // without an access record (ATTACHED_8BPP, ATTACHED_2BPP, DEPTH(CONF); not
  // ATTACHED_1BPP, which is content like any other format).
  bool attachable;
  // Three or four channels with red and blue (BGRA, BGR, RGBA, RGB).
  bool colour;
};

// The parts of a format key.
constexpr int32_t KeyFormat(int32_t key) { return key & Norvik::Lumetra::kPixelFormatMask; }
constexpr int32_t KeyDegrees(int32_t key) {
  return (key & Norvik::Lumetra::kRotationMask) >> Norvik::Lumetra::kRotationShift;
}
constexpr int32_t FormatKey(int32_t format, int32_t degrees) {
  return static_cast<int32_t>((static_cast<uint32_t>(degrees) << Norvik::Lumetra::kRotationShift) +
                              static_cast<uint32_t>(format));
}

// Whether a key is exactly an attachable format (a rotated key is not).
bool IsAttachable(int32_t key);
// Whether a format holds three or four colour channels.
bool IsColour(int32_t format);
// Depth-like formats: the depth family 0x20000..0x2FFFF and the 16-bit grey family
// 0x40000..0x4FFFF, whether or not the table knows the code.
constexpr bool IsDepthLike(int32_t format) {
  const uint32_t code = static_cast<uint32_t>(format);
  return (code >= 0x20000 && code <= 0x2FFFF) || (code >> 16) == 0x4;
}

// The row for a pixel format without rotation bits (key & kPixelFormatMask);
// null when the format has no built-in layout.
const PixelFormatTraits* FindPixelFormat(int32_t format);

// Printed name of a code, compared exactly (rotation bits included, so a rotated
// key is "Unknown"); "Unknown" for codes not in the table and for 0x18000.
const wchar_t* PixelFormatName(int32_t code);

// The same, except that 0x18000 is "NV21": the spelling of conversion traces.
const wchar_t* ConversionFormatName(int32_t code);

// Plane layout of an image of width x height in the format key (pixel format
// and rotation bits): clears the four entries, fills the used ones and returns
// the plane count, 0 for a format without layout. For rotations of 90 and 270
// width and height of every plane are swapped after the second plane's height
// is halved. Size limits are the caller's to check (this function does not log).
int ComputePlaneLayout(int32_t width, int32_t height, int32_t format_key, LMXImageService::PlaneInfo* planes);

}  // namespace lmx
