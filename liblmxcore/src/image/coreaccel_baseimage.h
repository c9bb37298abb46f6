// coreaccel_baseimage.h: the image base class and the image layout helpers.
//
// BaseImage implements the three image faces (Image, LMXImageService,
// LMXImageServiceOld) over a description (ImageInfo), an options word and a current
// ImageData. Storage objects (ImageSysMem) and the multi-format image object
// (MultiBuffer) derive from it. After the Image face's destructor slot (14) it
// adds, in this order: seven accessors (15 GetWidth, 16 GetHeight, 17 GetFormat,
// 18 GetReserved, 19 PutOptions, 20 GetOptions, 21 GetImageInfo),
// 22 AcquireNativeAccess, 23 ReleaseNativeAccess (answers 0), 24 CopySystemBuffer,
// 25 ReInitImpl, 26 ForwardOptions, 27 SetOptionsImpl (the options setter).
#pragma once

#include <cstdint>

#include "image/pixel_format_table.h"
#include "lmximage.h"
#include "lmximpl.h"

namespace lmx {

using ImageInfo = Norvik::Lumetra::Image::ImageInfo;
using ImageData = Norvik::Lumetra::Image::ImageData;
using PlaneInfo = LMXImageService::PlaneInfo;

// Static wide name of an exact pixel-format code ("YUY2", "DEPTH(CONF)", ...);
// "Unknown" for any other value, rotated codes included. One table serves the
// names, the plane layout and the conversions (kernels/pixel_format_table.h).

// Plane count (0..2 for built-in formats) of a description, filling planes (may be
// null). A zero dimension or one of 32768 and more is logged and answers 0; an
// unknown format answers 0 silently. Rotations of 90 and 270 swap each plane's
// width and height. options is ignored.
int32_t QueryPlaneInfo(const ImageInfo* info, int32_t options, PlaneInfo* planes);

// Metadata identifiers an image reads from its own store.
inline constexpr int32_t kMetadataDepthScale = 0x24740F78;      // float
inline constexpr int32_t kMetadataMemoryProvider = 0x24740F79;  // Base* of the host's provider
inline constexpr int32_t kMetadataMirroring = 0x61516733;       // (uint32 id, float value) pairs

class BaseImage : public Norvik::Lumetra::BaseImpl3<Norvik::Lumetra::Image, LMXImageService, LMXImageServiceOld> {
 public:
  using Status = Norvik::Lumetra::Status;
  using Access = Norvik::Lumetra::Image::Access;
  using PixelFormat = Norvik::Lumetra::Image::PixelFormat;
  using Image = Norvik::Lumetra::Image;

  // Image: the six small operations and the forwarding slot.
  Status QueryInfo(ImageInfo* info) override;
  int64_t QueryTimeStamp() override { return timeStamp_; }
  Status SetTimeStamp(int64_t timeStamp) override;
  int32_t QueryOptions() override { return this->options; }
  int64_t QueryDuration() override { return duration_; }
  Status SetDuration(int64_t duration) override;
  Status SetOptions(int32_t options) override { return SetOptionsImpl(options); }

  // Import, export and copy through the access protocol (coreaccel_baseimage_io.cpp).
  Status CopyImage(Image* src) override;
  Status ExportData(ImageData* data, int32_t options) override;
  Status ImportData(ImageData* data, int32_t options) override;

  // A plain image is its own single buffer: access hands out its planes.
  Status AcquireAccess(Access access, PixelFormat format, int32_t options, ImageData* data) override;
  Status ReleaseAccess(ImageData* data) override;

  // Slots after the destructor.
  virtual int32_t GetWidth() { return this->info.width; }
  virtual int32_t GetHeight() { return this->info.height; }
  virtual int32_t GetFormat() { return this->info.format; }
  virtual int32_t GetReserved() { return this->info.reserved; }
  virtual void PutOptions(int32_t options) { this->options = options; }
  virtual int32_t GetOptions() { return this->options; }
  virtual Status GetImageInfo(ImageInfo* info) { return QueryInfo(info); }
  // Copies the current ImageData into *data; nothing is locked or converted.
  virtual Status AcquireNativeAccess(Access access, int32_t options, ImageData* data);
  // Planes stay where they are; answers LMX_STATUS_NO_ERROR.
  virtual Status ReleaseNativeAccess(ImageData* data);
  // Converts one buffer of this image into another (or names an intermediate format
  // at *interm and fails). Offers the conversion to the host's memory provider first.
  virtual Status CopySystemBuffer(ImageInfo* srcInfo, ImageData* src, ImageInfo* dstInfo, ImageData* dst,
                                  PixelFormat* interm);
  virtual Status ReInitImpl(ImageInfo* info, ImageData* data, int32_t options);
  virtual Status ForwardOptions(int32_t options) { return SetOptionsImpl(options); }
  virtual Status SetOptionsImpl(int32_t options);

  // LMXImageService / LMXImageServiceOld. Declared after the slots above: the
  // compiler gives overriders of secondary faces entries in the primary table too,
  // in declaration order, and those must not shift slots 15 to 27.
  int32_t QueryPlaneInfo(ImageInfo* info, int32_t options, PlaneInfo* planes) override;
  int32_t QueryPlaneInfo(ImageInfo* info, PlaneInfo* planes) override;
  Status SetInvalidateCallback(InvalidateCallback callback, void* argument) override;
  Status AttachObject(Norvik::Lumetra::Base* object) override;
  Status DetachPlane(uint8_t* plane) override;
  Status InvalidateData() override;

  // The depth scale (metadata 0x24740F78, a float) of this image: -1 when the image
  // has no metadata face, else the status of the 4-byte read.
  Status GetDepthScale(float* scale);
  // The memory provider attached under metadata 0x24740F79, or null. No reference.
  Norvik::Lumetra::Base* GetMemoryProvider();

  const ImageInfo& Info() const { return info; }
  const ImageData& Data() const { return data; }

 protected:
  BaseImage() = default;
  ~BaseImage() = default;

  // The body of ExportData (ACCESS_READ) and ImportData (ACCESS_WRITE) once the
  // caller's record has passed its checks.
  Status TransferCallerData(Access access, ImageData* data, int32_t options);

  ImageInfo info{};     // description: size, format key, reserved word
  int32_t options = 0;  // creation options, handed to every storage buffer
  ImageData data{};     // the current planes (storage objects)
  int64_t timeStamp_ = 0;
  int64_t duration_ = 0;
};

}  // namespace lmx
