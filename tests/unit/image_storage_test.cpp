// System-memory image storage: allocation sizes, alignment, logging, detaching,
// the 32-bit size guard, and the recycling of plane blocks.
#include <gtest/gtest.h>

#include <cstring>

#include "image/coreaccel_emu.h"
#include "image/plane_cache.h"
#include "image_test_support.h"
#include "host_ref.h"
#include "lmx/platform/memory.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmx::BaseImage;
using lmx::ImageData;
using lmx::ImageInfo;

namespace {

using StoragePtr = lmxhost::Ref<BaseImage>;

StoragePtr Allocate(int32_t width, int32_t height, int32_t format, Status* sts, Base* provider = nullptr) {
  BaseImage* storage = nullptr;
  *sts = lmx::CreateImageSysMem(ImageInfo{width, height, 0, 7}, format, nullptr, 0, provider, &storage);
  return StoragePtr(storage);
}

// Describes a 3-plane private format of one byte per pixel.
class ThreePlaneProvider final : public BaseImpl<LMXCustomImageFormat> {
 public:
  Status QueryPlaneInfo(Image::ImageInfo* info, LMXImageService::PlaneInfo* planes, int32_t* count) override {
    for (int c = 0; c < 3; ++c) planes->plane[c] = {static_cast<uint32_t>(info->width), 2, 1};
    *count = 3;
    return LMX_STATUS_NO_ERROR;
  }
  Status CopySystemBuffer(Image::ImageInfo*, Image::ImageData*, Image::ImageInfo*, Image::ImageData*,
                          Image::PixelFormat*) override {
    return LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

}  // namespace

// Rows are padded to 64 bytes; planes of 153600 bytes and more are page aligned,
// smaller ones 64-byte aligned. Each plane's allocation is logged at VERBOSE.
TEST(ImageStorage, PitchSizeAndAlignmentFollowThePlaneSize) {
  const struct {
    int32_t width, height, format, pitch;
    uintptr_t alignment;
    const char* line;
  } cases[] = {
      {640, 480, Image::PIXEL_FORMAT_BGRA, 2560, 4096, "Allocated 1228800 bytes for BGRA"},
      {100, 100, Image::PIXEL_FORMAT_Y8, 128, 64, "Allocated 12800 bytes for Y8"},
      {65, 2, Image::PIXEL_FORMAT_Y8, 128, 64, "Allocated 256 bytes for Y8"},  // one byte past a 64-byte row
      {320, 240, Image::PIXEL_FORMAT_DEPTH, 640, 4096, "Allocated 153600 bytes for"},
      {319, 240, Image::PIXEL_FORMAT_DEPTH, 640, 4096, "Allocated 153600 bytes for"},
      {640, 480, Image::PIXEL_FORMAT_NV12, 640, 4096, "Allocated 153600 bytes for NV12"},  // the second plane
      {16, 16, Image::PIXEL_FORMAT_Y8 | (90 << kRotationShift), 64, 64, "Allocated 1024 bytes for Unknown"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    lmxtest::ScopedCapture capture;
    Status sts;
    auto storage = Allocate(c.width, c.height, c.format, &sts);
    ASSERT_EQ(sts, LMX_STATUS_NO_ERROR);
    ImageData data{};
    ASSERT_EQ(storage->AcquireNativeAccess(Image::ACCESS_READ, 0, &data), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(data.format, c.format);
    EXPECT_EQ(data.pitches[0], c.pitch);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data.planes[0]) % c.alignment, 0u);
    EXPECT_EQ(data.planes[1] != nullptr, c.format == Image::PIXEL_FORMAT_NV12);
    EXPECT_EQ(storage->GetReserved(), 7) << "the reserved word comes from the given description";
    EXPECT_TRUE(capture->Contains(c.line));
    for (const auto& line : capture->Lines()) EXPECT_EQ(line.level, LOG_LEVEL_VERBOSE) << line.message;
  }
}

TEST(ImageStorage, FormatsWithoutALayoutNeedAProvider) {
  lmxtest::ScopedCapture capture;
  Status sts;
  auto unknown = Allocate(16, 16, 0x12345, &sts);
  EXPECT_EQ(sts, LMX_STATUS_PARAM_UNSUPPORTED);
  ASSERT_NE(unknown.Get(), nullptr) << "the object is handed out for the caller to release";

  auto* provider = new ThreePlaneProvider;
  auto custom = Allocate(100, 4, 0x12345, &sts, provider);
  EXPECT_EQ(sts, LMX_STATUS_NO_ERROR);
  ImageData data{};
  ASSERT_EQ(custom->AcquireNativeAccess(Image::ACCESS_READ, 0, &data), LMX_STATUS_NO_ERROR);
  EXPECT_NE(data.planes[2], nullptr);
  EXPECT_EQ(data.pitches[2], 128);
  provider->Release();
}

TEST(ImageStorage, SizesBeyondThirtyTwoBitsAndNegativeDimensionsFailCleanly) {
  lmxtest::ScopedCapture capture;
  Status sts;
  // 32767 x 32767 x 8 bytes is far beyond a signed 32-bit size; width -1 would round
  // to a pitch of 0 and an empty block.
  auto huge = Allocate(32767, 32767, Image::PIXEL_FORMAT_ATTACHED_8BPP, &sts);
  EXPECT_EQ(sts, LMX_STATUS_ALLOC_FAILED);
  for (int32_t width : {-1, -16}) {
    auto refused = Allocate(width, 16, Image::PIXEL_FORMAT_Y8, &sts);
    EXPECT_EQ(sts, LMX_STATUS_ALLOC_FAILED) << width;
    EXPECT_EQ(refused->AcquireNativeAccess(Image::ACCESS_READ, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
  }
}

TEST(ImageStorage, DetachPlaneMovesTheImageToFreshPlanesAndLeavesTheOldBlockToItsHolder) {
  Status sts;
  auto storage = Allocate(64, 4, Image::PIXEL_FORMAT_NV12, &sts);
  ImageData before{};
  ASSERT_EQ(storage->AcquireNativeAccess(Image::ACCESS_READ, 0, &before), LMX_STATUS_NO_ERROR);
  uint8_t unrelated = 0;
  EXPECT_EQ(storage->DetachPlane(&unrelated), LMX_STATUS_ITEM_UNAVAILABLE);
  EXPECT_EQ(storage->DetachPlane(nullptr), LMX_STATUS_ITEM_UNAVAILABLE);
  // Sixth slot (index 5) of the LMXImageService face, as another module calls it.
  void* face = storage->QueryInstance(LMXImageService::kIid);
  ASSERT_NE(face, nullptr);
  EXPECT_EQ(lmxtest::CallSlot<Status>(face, 5, &unrelated), LMX_STATUS_ITEM_UNAVAILABLE);

  std::memset(before.planes[0], 0xAB, 64 * 4);
  ASSERT_EQ(storage->DetachPlane(before.planes[0]), LMX_STATUS_NO_ERROR);
  ImageData after{};
  ASSERT_EQ(storage->AcquireNativeAccess(Image::ACCESS_READ, 0, &after), LMX_STATUS_NO_ERROR);
  EXPECT_NE(after.planes[0], before.planes[0]);
  // The rows went from the fresh planes into the old block: the holder's block now
  // holds what the fresh plane held, and the fresh plane was not filled from it.
  EXPECT_EQ(std::memcmp(before.planes[0], after.planes[0], 64 * 4), 0);
  lmx::platform::AlignedFree(before.planes[0]);  // the holder's block
}

// No pair conversion writes the lone last pixel of an odd-width YUY2 row (NV12 to
// YUY2): the storage clears it, or a recycled block's old bytes would show there.
TEST(ImageStorage, LonePixelOfAnOddYuy2RowIsClearedOverARecycledBlock) {
  Status sts;
  for (int round = 0; round < 2; ++round) {
    auto storage = Allocate(401, 185, Image::PIXEL_FORMAT_YUY2, &sts);  // a recycled size class
    ImageData data{};
    ASSERT_EQ(storage->AcquireNativeAccess(Image::ACCESS_WRITE, 0, &data), LMX_STATUS_NO_ERROR);
    for (int y = 0; y < 185; ++y)
      ASSERT_EQ(data.planes[0][y * data.pitches[0] + 800] | data.planes[0][y * data.pitches[0] + 801], 0) << y;
    std::memset(data.planes[0], 0xEE, static_cast<size_t>(data.pitches[0]) * 185);  // junk for the next round
  }
}

namespace {

// The system under a cache: counts blocks out, refuses the next `refusals`, and
// a clock the test moves.
struct FakeSystem {
  static inline int live = 0, refusals = 0;
  static inline int64_t now = 0;
  static void* Allocate(size_t size, size_t alignment) {
    if (refusals > 0) return --refusals, nullptr;
    ++live;
    return lmx::platform::AlignedAlloc(size, alignment);
  }
  static void Free(void* block) { --live, lmx::platform::AlignedFree(block); }
  static int64_t Now() { return now; }
};

}  // namespace

TEST(PlaneCache, RecyclesByClassWithinItsBoundAndReleasesWhatIsIdleOffOrInTheWay) {
  using lmx::PlaneCache;
  constexpr size_t kBlock = 300000;  // class 327680: three fit in 1 MB, four do not
  FakeSystem::live = 0;
  void* taken = nullptr;
  {
    PlaneCache cache({FakeSystem::Allocate, FakeSystem::Free, FakeSystem::Now});
    cache.SetLimit(1 << 20);
    void* blocks[4];
    for (void*& block : blocks) {
      block = cache.Allocate(kBlock, 64);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % PlaneCache::kAlignment, 0u);
      std::memset(block, 1, kBlock);  // never smaller than asked (ASan)
    }
    for (void* block : blocks) cache.Free(block, kBlock);
    EXPECT_EQ(FakeSystem::live, 3) << "the bound holds three";
    EXPECT_LE(cache.CachedBytes(), cache.Limit());
    void* same = cache.Allocate(kBlock + 1, 64);  // the same class: recycled, the newest first
    EXPECT_EQ(same, blocks[3]);
    taken = cache.Allocate(kBlock, 64);
    EXPECT_NE(taken, same) << "one block, one live owner";
    void* other = cache.Allocate(2 * kBlock, 64);
    EXPECT_EQ(FakeSystem::live, 4) << "another class comes from the system";
    cache.Free(same, kBlock);

    FakeSystem::now += PlaneCache::kIdleMs;  // idle blocks go on the next call
    cache.Free(other, 2 * kBlock);
    EXPECT_EQ(FakeSystem::live, 2);
    FakeSystem::refusals = 1;  // a refusal releases the cached block and tries again
    void* retried = cache.Allocate(4 * kBlock, 64);
    EXPECT_NE(retried, nullptr);
    EXPECT_EQ(cache.CachedBytes(), 0u);
    FakeSystem::refusals = 2;
    EXPECT_EQ(cache.Allocate(4 * kBlock, 64), nullptr) << "a failure is still reported";

    cache.SetLimit(0);  // off: back to the system at once
    cache.Free(retried, 4 * kBlock);
    EXPECT_EQ(FakeSystem::live, 1);
    cache.SetLimit(PlaneCache::kAutomatic);
    cache.Free(cache.Allocate(kBlock, 64), kBlock);
    EXPECT_EQ(FakeSystem::live, 2) << "the automatic bound keeps a block of the working set";
  }
  EXPECT_EQ(FakeSystem::live, 1) << "unloading releases every cached block";
  FakeSystem::Free(taken);
}
