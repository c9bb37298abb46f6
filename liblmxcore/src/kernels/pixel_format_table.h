// pixel_format_table.h: names and plane layouts of the pixel formats.
//
// One table row per built-in format: code, printed name, plane count and bytes
// per pixel of plane 0. Two-plane formats have 1-byte pixels in both planes and a
// second plane of width x (height / 2). Formats not in the table have no layout.
#pragma once

#include <cstdint>

#include "lmximage.h"

namespace lmx {

struct PixelFormatTraits {
  int32_t code;
  const wchar_t* name;
  int32_t planes;
  int32_t bytes_per_pixel;
};

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
