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

// Primary face of an image object.
// Slots: 0 QueryInstance, 1 Release, 2 QueryInfo, 3 QueryTimeStamp, 4 SetTimeStamp,
// 5 QueryOptions, 6 QueryDuration, 7 SetDuration, 8 SetOptions, 9 CopyImage,
// 10 ExportData, 11 ImportData, 12 AcquireAccess, 13 ReleaseAccess, 14 Destroy.
// Implementations (BaseImage) add further slots after Destroy.
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
    // Side-data formats. The first three are attachable (never made stale by a
    // write); ATTACHED_1BPP is not.
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

  static constexpr InterfaceId kIid = 0x24740F76;
  static constexpr InterfaceId kIid2 = static_cast<InterfaceId>(0xF341B2EC);

  // Slots 2..7: the six small operations (timing and description of the frame).
  // Copies the image's description into *info.
  virtual Status QueryInfo(ImageInfo* info) = 0;
  virtual int64_t QueryTimeStamp() = 0;
  virtual Status SetTimeStamp(int64_t timeStamp) = 0;
  virtual int32_t QueryOptions() = 0;
  virtual int64_t QueryDuration() = 0;
  virtual Status SetDuration(int64_t duration) = 0;
  // Slot 8: forwards to the implementation's options setter.
  virtual Status SetOptions(int32_t options) = 0;
  // Slot 9: copies another image's side data and content into this one.
  virtual Status CopyImage(Image* src) = 0;
  // Slots 10, 11: copy the image out to / in from planes the caller owns, converting
  // through the access protocol. Options: bit value 2 flips vertically; the mode is
  // 0 plain, 1 horizontal mirror, 4 red-blue swap, 16 mirror with axis selector 2.
  virtual Status ExportData(ImageData* data, int32_t options) = 0;
  virtual Status ImportData(ImageData* data, int32_t options) = 0;
  // Slot 12: acquires the image in a format (0: native); the low 9 bits of options
  // are a rotation in degrees. Every successful acquisition holds one reference
  // until the matching ReleaseAccess.
  virtual Status AcquireAccess(Access access, PixelFormat format, int32_t options, ImageData* data) = 0;
  // Slot 13: ends an acquisition and clears *data.
  virtual Status ReleaseAccess(ImageData* data) = 0;
  // Slot 14: the destructor slot (bit 0 of flags: also free the memory).
  virtual void Destroy(uint32_t flags) = 0;

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

// Second face of an image object.
// Slots: 0 QueryInstance, 1 Release, 2 QueryPlaneInfo, 3 SetInvalidateCallback,
// 4 AttachObject, 5 DetachPlane, 6 InvalidateData, 7 Destroy.
class LMXImageService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = static_cast<Norvik::Lumetra::InterfaceId>(0x8472F0D3);
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // Per plane: width in pixels, height in rows, bytes per pixel.
  struct PlaneInfo {
    struct Plane {
      uint32_t width;
      uint32_t height;
      uint32_t bytesPerPixel;
    } plane[4];
  };

  using InvalidateCallback = void (*)(void* argument);

  // Number of planes of the description (0 for a zero, too large or unknown one);
  // fills planes when it is not null. options is accepted and ignored.
  virtual int32_t QueryPlaneInfo(Norvik::Lumetra::Image::ImageInfo* info, int32_t options, PlaneInfo* planes) = 0;
  // Called once, then cleared, by the next InvalidateData.
  virtual Norvik::Lumetra::Status SetInvalidateCallback(InvalidateCallback callback, void* argument) = 0;
  // The object takes over one hold on the attached object; InvalidateData releases it.
  virtual Norvik::Lumetra::Status AttachObject(Norvik::Lumetra::Base* object) = 0;
  // Storage only: moves the image to fresh planes, leaving the given plane to its holder.
  virtual Norvik::Lumetra::Status DetachPlane(uint8_t* plane) = 0;
  // Marks every held format stale and runs the invalidation hooks.
  virtual Norvik::Lumetra::Status InvalidateData() = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXImageService() = default;
};

// Third face of an image object, the earlier plane query ("IMGS").
// Slots: 0 QueryInstance, 1 Release, 2 QueryPlaneInfo, 3 Destroy.
class LMXImageServiceOld : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("IMGS");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  virtual int32_t QueryPlaneInfo(Norvik::Lumetra::Image::ImageInfo* info, LMXImageService::PlaneInfo* planes) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXImageServiceOld() = default;
};

// A host's memory provider: describes the planes of pixel formats the library does
// not know, and may take over conversions between buffers of an image.
// Slots: 0 QueryInstance, 1 Release, 2 QueryPlaneInfo, 3 CopySystemBuffer, 4 Destroy.
class LMXCustomImageFormat : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x03D8C582;
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // Fills planes and *count for a format the library has no layout for.
  virtual Norvik::Lumetra::Status QueryPlaneInfo(Norvik::Lumetra::Image::ImageInfo* info,
                                                 LMXImageService::PlaneInfo* planes, int32_t* count) = 0;
  // Offered every conversion first; a non-negative answer is the conversion's result.
  virtual Norvik::Lumetra::Status CopySystemBuffer(Norvik::Lumetra::Image::ImageInfo* srcInfo,
                                                   Norvik::Lumetra::Image::ImageData* src,
                                                   Norvik::Lumetra::Image::ImageInfo* dstInfo,
                                                   Norvik::Lumetra::Image::ImageData* dst,
                                                   Norvik::Lumetra::Image::PixelFormat* interm) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXCustomImageFormat() = default;
};

static_assert(sizeof(LMXImageService::PlaneInfo) == 48);
