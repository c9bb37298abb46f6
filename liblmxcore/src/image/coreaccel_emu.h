// coreaccel_emu.h: image storage in ordinary process memory.
//
// ImageSysMem owns the planes of one format of an image: one aligned block per
// plane, rows padded to 64 bytes. Planes handed in for adoption are used, never
// freed. The multi-format image object creates one per format it holds.
#pragma once

#include "image/coreaccel_baseimage.h"

namespace lmx {

class ImageSysMem final : public BaseImage {
 public:
  // info supplies width, height and reserved word; key is the buffer's format
  // (pixel format with rotation bits).
  ImageSysMem(const ImageInfo& info, int32_t key, int32_t options);

  // Fills data with planes for info: pitch = width x bytes per pixel rounded up to
  // 64, blocks aligned to 64 bytes below 153600 bytes and to 4096 from there (those
  // recycled through PlaneCache). A plane that does not fit 32-bit sizes (or has a negative
  // dimension) fails as ALLOC_FAILED. Planes allocated before a failure stay owned.
  Status AllocateImage(ImageInfo* info, ImageData* data, LMXCustomImageFormat* custom, int32_t options);

  // Moves the image to fresh planes; see the definition for the copy direction.
  Status DetachPlane(uint8_t* plane) override;

  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  ~ImageSysMem();

  // The adopted or allocated ImageData (tests).
  ImageData* mutable_data() { return &this->data; }

 private:
  void FreeBlock(int plane);

  uint8_t* blocks_[4] = {};
  size_t blockSizes_[4] = {};
};

// Creates the storage of one format: adopts adopt's planes when given (its format
// 0 becomes key), otherwise allocates. provider, when given, is asked for
// LMXCustomImageFormat for formats without a built-in layout. *result receives the
// object even when allocation fails (the caller releases it); it is null only when
// the object itself cannot be had (LMX_STATUS_ALLOC_FAILED).
Norvik::Lumetra::Status CreateImageSysMem(const ImageInfo& info, int32_t key, const ImageData* adopt, int32_t options,
                                          Norvik::Lumetra::Base* provider, BaseImage** result);

}  // namespace lmx
