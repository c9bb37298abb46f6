// image_test_support.h: images and allocators made directly for a test, and
// access calls that take a plain format number.
#pragma once

#include <gtest/gtest.h>

#include "image/coreaccel_multibuffer.h"
#include "lmxallocator.h"
#include "module_factories.h"

using lmx::CreateAllocator;

namespace lmxtest {

inline lmx::ImageObject* NewImage(int32_t width, int32_t height, int32_t format,
                                  Norvik::Lumetra::Session* session = nullptr) {
  lmx::ImageInfo info{width, height, format, 0};
  Norvik::Lumetra::Status sts = Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED;
  auto* image = new lmx::ImageObject(session, &info, nullptr, 0, &sts);
  EXPECT_EQ(sts, Norvik::Lumetra::LMX_STATUS_NO_ERROR);
  return image;
}

inline LMXAllocator* NewAllocator() {
  Norvik::Lumetra::Base* object = nullptr;
  EXPECT_EQ(CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object), Norvik::Lumetra::LMX_STATUS_NO_ERROR);
  return static_cast<LMXAllocator*>(object);
}

// AcquireAccess for reading or writing; format 0 is the image's own.
template <class I>
Norvik::Lumetra::Status Read(I* image, int32_t format, Norvik::Lumetra::Image::ImageData* data) {
  return image->AcquireAccess(Norvik::Lumetra::Image::ACCESS_READ,
                              static_cast<Norvik::Lumetra::Image::PixelFormat>(format), 0, data);
}
template <class I>
Norvik::Lumetra::Status Write(I* image, int32_t format, Norvik::Lumetra::Image::ImageData* data, int32_t rotation = 0) {
  return image->AcquireAccess(Norvik::Lumetra::Image::ACCESS_WRITE,
                              static_cast<Norvik::Lumetra::Image::PixelFormat>(format), rotation, data);
}

}  // namespace lmxtest
