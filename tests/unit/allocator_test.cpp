// The allocator service: creation checks, reserved operations, lifetime.
#include <gtest/gtest.h>

#include "image_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmxtest::NewAllocator;
using lmxtest::Write;

TEST(Allocator, CreateImageChecksItsArguments) {
  lmxtest::ScopedCapture capture;
  LMXAllocator* allocator = NewAllocator();
  Image::ImageInfo info{16, 16, Image::PIXEL_FORMAT_Y8, 0};
  EXPECT_EQ(allocator->CreateImage(&info, 0, nullptr, nullptr), LMX_STATUS_HANDLE_INVALID);

  Image* image = reinterpret_cast<Image*>(0x1);
  Image::ImageData data{};
  EXPECT_EQ(allocator->CreateImage(nullptr, 0, &data, &image), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(image, reinterpret_cast<Image*>(0x1)) << "rejected before the out pointer is touched";
  EXPECT_EQ(lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, nullptr), LMX_STATUS_HANDLE_INVALID);

  // No description and no data passes the allocator: an empty image.
  EXPECT_EQ(allocator->CreateImage(nullptr, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
  ASSERT_NE(image, nullptr);
  image->Release();

  // A failing initialisation never hands out a partial object.
  for (Image::ImageInfo bad : {Image::ImageInfo{16, 16, 0x12345, 0}, Image::ImageInfo{32768, 16, 1, 0}}) {
    EXPECT_EQ(allocator->CreateImage(&bad, 0, nullptr, &image), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_EQ(image, nullptr);
  }
  allocator->Release();
}

TEST(Allocator, CreateAudioChecksItsArgumentsAndAdoptsSamples) {
  lmxtest::ScopedCapture capture;
  LMXAllocator* allocator = NewAllocator();
  LMXAudio::AudioInfo info{8, LMXAudio::AUDIO_FORMAT_PCM, 16000, 1, 0, {0, 0, 0}};
  EXPECT_EQ(allocator->CreateAudio(&info, 0, nullptr, nullptr), LMX_STATUS_HANDLE_INVALID);
  LMXAudio* audio = reinterpret_cast<LMXAudio*>(0x1);
  LMXAudio::AudioData data{};
  EXPECT_EQ(allocator->CreateAudio(nullptr, 0, &data, &audio), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(audio, reinterpret_cast<LMXAudio*>(0x1));
  LMXAudio::AudioInfo unknown = info;
  unknown.format = static_cast<LMXAudio::AudioFormat>(0x12345608);
  EXPECT_EQ(allocator->CreateAudio(&unknown, 0, nullptr, &audio), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_EQ(audio, nullptr);

  // Adopted samples are the object's native format, valid at once.
  int16_t samples[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  data = {LMXAudio::AUDIO_FORMAT_PCM, 8, reinterpret_cast<uint8_t*>(samples)};
  ASSERT_EQ(allocator->CreateAudio(&info, 0, &data, &audio), LMX_STATUS_NO_ERROR);
  LMXAudio::AudioData read{};
  ASSERT_EQ(audio->AcquireAccess(LMXAudio::ACCESS_READ, static_cast<LMXAudio::AudioFormat>(0), &read),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(read.dataPtr, data.dataPtr);
  EXPECT_EQ(read.dataSize, 8);
  EXPECT_EQ(audio->ReleaseAccess(&read), LMX_STATUS_NO_ERROR);
  audio->Release();
  allocator->Release();
}

TEST(Allocator, ImagesOutliveTheAllocatorAndItLogsItsEnd) {
  lmxtest::ScopedCapture capture;
  LMXAllocator* allocator = NewAllocator();
  static_cast<Reference*>(allocator->QueryInstance(Reference::kIid))->AddRef();

  Image::ImageInfo info{16, 4, Image::PIXEL_FORMAT_Y8, 0};
  Image* image = nullptr;
  ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
  allocator->Release();
  EXPECT_FALSE(capture->Contains("this = "));
  allocator->Release();
  EXPECT_TRUE(capture->Contains("this = "));

  Image::ImageData data{};
  ASSERT_EQ(Write(image, 0, &data), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(data.pitches[0], 64);
  EXPECT_EQ(image->ReleaseAccess(&data), LMX_STATUS_NO_ERROR);
  image->Release();
}
