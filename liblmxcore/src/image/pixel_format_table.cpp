// The table of built-in pixel formats and the plane layout derived from it.
#include "image/pixel_format_table.h"

namespace lmx {
namespace {

using Norvik::Lumetra::Image;

constexpr wchar_t kUnknown[] = L"Unknown";

constexpr bool kAttachable = true;
constexpr bool kColour = true;

// code, name, planes, bytes per pixel (plane 0; two-plane formats: 1 and 1), attachable, colour
constexpr PixelFormatTraits kFormats[] = {
    {Image::PIXEL_FORMAT_YUY2, L"YUY2", 1, 2, false, false},
    {Image::PIXEL_FORMAT_NV12, L"NV12", 2, 1, false, false},
    {Image::PIXEL_FORMAT_BGRA, L"BGRA", 1, 4, false, kColour},
    {Image::PIXEL_FORMAT_BGR, L"BGR", 1, 3, false, kColour},
    {Image::PIXEL_FORMAT_Y8, L"Y8", 1, 1, false, false},
    {Image::PIXEL_FORMAT_RGBA, L"RGBA", 1, 4, false, kColour},
    {Image::PIXEL_FORMAT_RGB, L"RGB", 1, 3, false, kColour},
    {Image::PIXEL_FORMAT_NV21, kUnknown, 2, 1, false, false},  // "NV21" only in conversion traces
    {Image::PIXEL_FORMAT_DEPTH, L"DEPTH", 1, 2, false, false},
    {Image::PIXEL_FORMAT_DEPTH_NATIVE, L"DEPTH(NATIVE)", 1, 2, false, false},
    {Image::PIXEL_FORMAT_DEPTH_FLOAT, L"DEPTH(FLOAT)", 1, 4, false, false},
    {Image::PIXEL_FORMAT_Y16, L"Y16", 1, 2, false, false},
    {Image::PIXEL_FORMAT_Y8_RELATIVE, L"Y8_REL", 1, 1, false, false},
    {Image::PIXEL_FORMAT_ATTACHED_8BPP, kUnknown, 1, 8, kAttachable, false},
    {Image::PIXEL_FORMAT_ATTACHED_2BPP, kUnknown, 1, 2, kAttachable, false},
    {Image::PIXEL_FORMAT_DEPTH_CONFIDENCE, L"DEPTH(CONF)", 1, 1, kAttachable, false},
    {Image::PIXEL_FORMAT_ATTACHED_1BPP, kUnknown, 1, 1, false, false},
};

}  // namespace

const PixelFormatTraits* FindPixelFormat(int32_t format) {
  for (const PixelFormatTraits& row : kFormats)
    if (row.code == format) return &row;
  return nullptr;
}

bool IsAttachable(int32_t key) {
  const PixelFormatTraits* row = FindPixelFormat(key);
  return row && row->attachable;
}

bool IsColour(int32_t format) {
  const PixelFormatTraits* row = FindPixelFormat(format);
  return row && row->colour;
}

const wchar_t* PixelFormatName(int32_t code) {
  const PixelFormatTraits* row = FindPixelFormat(code);
  return row ? row->name : kUnknown;
}

const wchar_t* ConversionFormatName(int32_t code) {
  return code == Image::PIXEL_FORMAT_NV21 ? L"NV21" : PixelFormatName(code);
}

int ComputePlaneLayout(int32_t width, int32_t height, int32_t format_key, LMXImageService::PlaneInfo* planes) {
  LMXImageService::PlaneInfo scratch;
  LMXImageService::PlaneInfo& out = planes ? *planes : scratch;
  out = {};
  const PixelFormatTraits* row = FindPixelFormat(KeyFormat(format_key));
  if (!row) return 0;
  for (int c = 0; c < row->planes; ++c) {
    out.plane[c].width = static_cast<uint32_t>(width);
    out.plane[c].height = static_cast<uint32_t>(height);
    out.plane[c].bytesPerPixel = static_cast<uint32_t>(row->planes == 2 ? 1 : row->bytes_per_pixel);
  }
  if (row->planes == 2) out.plane[1].height = static_cast<uint32_t>(height / 2);
  const int32_t degrees = KeyDegrees(format_key);
  if (degrees == 90 || degrees == 270) {
    for (int c = 0; c < row->planes; ++c) {
      const uint32_t w = out.plane[c].width;
      out.plane[c].width = out.plane[c].height;
      out.plane[c].height = w;
    }
  }
  return row->planes;
}

}  // namespace lmx
