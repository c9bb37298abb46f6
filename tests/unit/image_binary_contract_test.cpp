// Image, Audio, LMXImageService, LMXAudioService, Metadata and LMXAllocator called
// through the raw vtable by slot index, as a separately compiled module calls them.
#include <gtest/gtest.h>

#include <cstring>

#include "core_metadata.h"
#include "lmxallocator.h"
#include "module_factories.h"
#include "test_support.h"

using lmx::CreateAllocator;

using namespace Norvik::Lumetra;
using lmxtest::CallSlot;

TEST(ImageBinaryContract, AllocatorImageServiceAndMetadataSlots) {
  Base* object = nullptr;
  ASSERT_EQ(CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object), LMX_STATUS_NO_ERROR);
  void* allocator = object;
  EXPECT_EQ(CallSlot<void*>(allocator, 0, LMXAllocator::kIid), allocator);
  EXPECT_EQ(CallSlot<Status>(allocator, 2), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<Status>(allocator, 3), LMX_STATUS_NO_ERROR);
  for (int slot = 4; slot <= 6; ++slot) EXPECT_EQ(CallSlot<Status>(allocator, slot), LMX_STATUS_FEATURE_UNSUPPORTED);

  // LMXAllocator 7 CreateImage.
  Image::ImageInfo info{32, 4, Image::PIXEL_FORMAT_Y8, 0};
  void* image = nullptr;
  ASSERT_EQ(CallSlot<Status>(allocator, 7, &info, int32_t{0}, static_cast<Image::ImageData*>(nullptr), &image),
            LMX_STATUS_NO_ERROR);
  ASSERT_NE(image, nullptr);

  // Image 2 QueryInfo, 4 SetTimeStamp, 3 QueryTimeStamp, 8 SetOptions, 5 QueryOptions.
  Image::ImageInfo described{};
  EXPECT_EQ(CallSlot<Status>(image, 2, &described), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(described.width, 32);
  EXPECT_EQ(CallSlot<Status>(image, 4, int64_t{1234}), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<int64_t>(image, 3), 1234);
  EXPECT_EQ(CallSlot<Status>(image, 8, int32_t{9}), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<int32_t>(image, 5), 9);

  // Image 11 ImportData, 12 AcquireAccess, 13 ReleaseAccess, 10 ExportData.
  uint8_t pixels[4][32];
  for (int y = 0; y < 4; ++y) std::memset(pixels[y], y + 1, 32);
  Image::ImageData caller{};
  caller.format = Image::PIXEL_FORMAT_Y8;
  caller.pitches[0] = 32;
  caller.planes[0] = &pixels[0][0];
  EXPECT_EQ(CallSlot<Status>(image, 11, &caller, int32_t{0}), LMX_STATUS_NO_ERROR);
  Image::ImageData data{};
  ASSERT_EQ(CallSlot<Status>(image, 12, int32_t{Image::ACCESS_READ}, int32_t{0}, int32_t{0}, &data),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.planes[0][64 * 3], 4);
  EXPECT_EQ(CallSlot<Status>(image, 13, &data), LMX_STATUS_NO_ERROR);
  std::memset(pixels, 0, sizeof(pixels));
  EXPECT_EQ(CallSlot<Status>(image, 10, &caller, int32_t{2}), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(pixels[0][0], 4) << "export with option 2 flips the rows";

  // Implementation slots after the destructor: 15 width, 16 height, 17 format.
  EXPECT_EQ(CallSlot<int32_t>(image, 15), 32);
  EXPECT_EQ(CallSlot<int32_t>(image, 16), 4);
  EXPECT_EQ(CallSlot<int32_t>(image, 17), Image::PIXEL_FORMAT_Y8);

  // LMXImageService 2 QueryPlaneInfo, 6 InvalidateData.
  void* service = CallSlot<void*>(image, 0, LMXImageService::kIid);
  ASSERT_NE(service, nullptr);
  LMXImageService::PlaneInfo planes{};
  EXPECT_EQ(CallSlot<int32_t>(service, 2, &info, int32_t{0}, &planes), 1);
  EXPECT_EQ(planes.plane[0].width, 32u);
  EXPECT_EQ(CallSlot<Status>(service, 6), LMX_STATUS_NO_ERROR);

  // Metadata 2 QueryUID, 5 AttachBuffer, 6 QueryBufferSize, 7 QueryBuffer, 3 QueryMetadata, 4 DetachMetadata.
  void* metadata = CallSlot<void*>(image, 0, Metadata::kIid);
  ASSERT_NE(metadata, nullptr);
  const int32_t uid = CallSlot<int32_t>(metadata, 2);
  EXPECT_EQ(uid, 0x81001);
  float scale = 0.25f;
  EXPECT_EQ(CallSlot<Status>(metadata, 5, int32_t{0x24740F78}, reinterpret_cast<uint8_t*>(&scale), int32_t{4}),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<int32_t>(metadata, 6, int32_t{0x24740F78}), 4);
  float read = 0;
  EXPECT_EQ(CallSlot<Status>(metadata, 7, int32_t{0x24740F78}, reinterpret_cast<uint8_t*>(&read), int32_t{4}),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read, 0.25f);
  EXPECT_EQ(CallSlot<int32_t>(metadata, 3, int32_t{0}), 0x81001);
  EXPECT_EQ(CallSlot<int32_t>(metadata, 3, int32_t{1}), 0x24740F78);
  EXPECT_EQ(CallSlot<Status>(metadata, 4, int32_t{0x24740F78}), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<int32_t>(metadata, 6, int32_t{0x24740F78}), 0);

  // Release through the metadata face ends the image; the allocator's 1 Release ends it.
  CallSlot<void>(metadata, 1);
  CallSlot<void>(allocator, 1);
}

TEST(ImageBinaryContract, AudioObjectSlots) {
  Base* object = nullptr;
  ASSERT_EQ(CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object), LMX_STATUS_NO_ERROR);
  void* allocator = object;

  // LMXAllocator 8 CreateAudio.
  LMXAudio::AudioInfo info{4, LMXAudio::AUDIO_FORMAT_PCM, 8000, 1, 0, {0, 0, 0}};
  void* audio = nullptr;
  ASSERT_EQ(CallSlot<Status>(allocator, 8, &info, int32_t{0}, static_cast<LMXAudio::AudioData*>(nullptr), &audio),
            LMX_STATUS_NO_ERROR);
  ASSERT_NE(audio, nullptr);
  EXPECT_EQ(CallSlot<void*>(audio, 0, LMXAudio::kIid), audio);

  // Audio 5 SetTimeStamp, 3 QueryTimeStamp, 6 SetOptions, 4 QueryOptions, 11 SetOptions again.
  CallSlot<void>(audio, 5, int64_t{77});
  EXPECT_EQ(CallSlot<int64_t>(audio, 3), 77);
  CallSlot<void>(audio, 6, 3u);
  EXPECT_EQ(CallSlot<uint32_t>(audio, 4), 3u);
  CallSlot<void>(audio, 11, 4u);
  EXPECT_EQ(CallSlot<uint32_t>(audio, 4), 4u);

  // Audio 8 AcquireAccess, 9 ReleaseAccess: write PCM, read float.
  LMXAudio::AudioData data{};
  ASSERT_EQ(CallSlot<Status>(audio, 8, int32_t{LMXAudio::ACCESS_WRITE}, int32_t{LMXAudio::AUDIO_FORMAT_PCM},
                             int32_t{0}, &data),
            LMX_STATUS_NO_ERROR);
  const int16_t samples[2] = {-16384, 8192};
  std::memcpy(data.dataPtr, samples, sizeof(samples));
  data.dataSize = 2;
  EXPECT_EQ(CallSlot<Status>(audio, 9, &data), LMX_STATUS_NO_ERROR);
  ASSERT_EQ(CallSlot<Status>(audio, 8, int32_t{LMXAudio::ACCESS_READ}, int32_t{LMXAudio::AUDIO_FORMAT_IEEE_FLOAT},
                             int32_t{0}, &data),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(reinterpret_cast<const float*>(data.dataPtr)[0], -0.5f);
  EXPECT_EQ(CallSlot<Status>(audio, 9, &data), LMX_STATUS_NO_ERROR);

  // 13 AcquireNativeAccess hands out the native (PCM) buffer as it stands.
  ASSERT_EQ(CallSlot<Status>(audio, 13, int32_t{LMXAudio::ACCESS_READ}, int32_t{0}, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.format, LMXAudio::AUDIO_FORMAT_PCM);
  EXPECT_EQ(data.dataSize, 2);

  // LMXAudioService 2 InvalidateData; Metadata 2 QueryUID.
  void* service = CallSlot<void*>(audio, 0, LMXAudioService::kIid);
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(CallSlot<Status>(service, 2), LMX_STATUS_NO_ERROR);
  void* metadata = CallSlot<void*>(audio, 0, Metadata::kIid);
  ASSERT_NE(metadata, nullptr);
  EXPECT_EQ(CallSlot<int32_t>(metadata, 2), 0x81001);

  CallSlot<void>(audio, 1);
  CallSlot<void>(allocator, 1);
}
