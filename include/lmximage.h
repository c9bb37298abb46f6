// lmximage.h: image records, pixel formats and access modes.
//
// ImageInfo describes an image (size and pixel format with rotation); ImageData
// reaches it in memory (format, one pitch and one base pointer per plane).
// The format field holds the pixel format in bits 0..20 and 30..31 and a rotation
// in degrees in bits 21..29: format & kPixelFormatMask, (format & kRotationMask) >> 21.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lmxbase.h"

namespace Norvik::Lumetra {

inline constexpr int32_t kPixelFormatMask = static_cast<int32_t>(0xC01FFFFF);
inline constexpr int32_t kRotationMask = 0x3FE00000;
inline constexpr int kRotationShift = 21;

class Image : public Base {
 public:
  enum PixelFormat : int32_t {
    PIXEL_FORMAT_YUY2 = 0x10000,
    PIXEL_FORMAT_NV12 = 0x10001,
    PIXEL_FORMAT_BGRA = 0x10002,
    PIXEL_FORMAT_BGR = 0x10003,
    PIXEL_FORMAT_Y8 = 0x10004,
    PIXEL_FORMAT_RGBA = 0x10202,
    PIXEL_FORMAT_RGB = 0x10203,
    PIXEL_FORMAT_NV21 = 0x18000,  // printed "Unknown" except in conversion traces
    PIXEL_FORMAT_DEPTH = 0x20000,
    PIXEL_FORMAT_DEPTH_NATIVE = 0x20001,
    PIXEL_FORMAT_DEPTH_FLOAT = 0x20002,
    PIXEL_FORMAT_Y16 = 0x40000,
    PIXEL_FORMAT_Y8_RELATIVE = 0x80000,
    // Attachable side-data formats (never made stale by a write).
    PIXEL_FORMAT_ATTACHED_8BPP = 0x40000002,  // 8 bytes per pixel
    PIXEL_FORMAT_ATTACHED_2BPP = 0x40000003,  // 2 bytes per pixel
    PIXEL_FORMAT_DEPTH_CONFIDENCE = 0x40000004,
    PIXEL_FORMAT_ATTACHED_1BPP = 0x40000005,  // 1 byte per pixel
  };

  enum Access : int32_t {
    ACCESS_READ = 1,
    ACCESS_WRITE = 2,
    ACCESS_READ_WRITE = 3,
  };

  struct ImageInfo {
    int32_t width;
    int32_t height;
    int32_t format;  // pixel format with rotation bits
    int32_t reserved;
  };

  struct ImageData {
    int32_t format;
    int32_t reserved[3];
    int32_t pitches[4];
    uint8_t* planes[4];
  };

 protected:
  ~Image() = default;
};

static_assert(sizeof(Image::ImageInfo) == 16);
static_assert(offsetof(Image::ImageInfo, format) == 8);
static_assert(offsetof(Image::ImageInfo, reserved) == 12);
static_assert(sizeof(Image::ImageData) == 64);
static_assert(offsetof(Image::ImageData, reserved) == 4);
static_assert(offsetof(Image::ImageData, pitches) == 16);
static_assert(offsetof(Image::ImageData, planes) == 32);

}  // namespace Norvik::Lumetra

class LMXImageService : public Norvik::Lumetra::Base {
 public:
  // Per plane: width in pixels, height in rows, bytes per pixel.
  struct PlaneInfo {
    struct Plane {
      uint32_t width;
      uint32_t height;
      uint32_t bytesPerPixel;
    } plane[4];
  };

 protected:
  ~LMXImageService() = default;
};

static_assert(sizeof(LMXImageService::PlaneInfo) == 48);
