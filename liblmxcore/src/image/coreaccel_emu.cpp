// System-memory image storage: plane allocation, adoption, detaching, freeing.
#include "image/coreaccel_emu.h"

#include <cstring>
#include <new>
#include <sstream>

#include "image/pixel_format_table.h"
#include "image/plane_cache.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

constexpr int64_t kRowAlignment = 64;
constexpr int64_t kPageAlignedFrom = 153600;

void LogAllocated(int64_t size, int32_t format, const char* file, int line, const char* function) {
  LoggingService* logger = lmsdk::LogUtil::GetLogger();
  if (!logger->IsLevelEnabled(LOG_LEVEL_VERBOSE)) return;
  std::wostringstream message;
  message << L"Allocated " << size << L" bytes for " << PixelFormatName(format);
  logger->LogW(LOG_LEVEL_VERBOSE, message.str().c_str(), file, line, function);
}

// A YUY2 row of odd width ends in a lone pixel that conversions from pairs never
// write (NV12 to YUY2): it gets a defined value, or a recycled block's old bytes
// would show in the last column.
void ClearLoneTailPixel(uint8_t* plane, int32_t pitch, const LMXImageService::PlaneInfo::Plane& layout) {
  if (!(layout.width & 1) || layout.bytesPerPixel != 2) return;
  uint8_t* tail = plane + static_cast<size_t>(layout.width - 1) * 2;
  for (uint32_t y = 0; y < layout.height; ++y, tail += pitch) tail[0] = tail[1] = 0;
}

}  // namespace

ImageSysMem::ImageSysMem(const ImageInfo& info, int32_t key, int32_t options) {
  this->info = {info.width, info.height, key, info.reserved};
  this->options = options;
}

void ImageSysMem::FreeBlock(int plane) {
  PlaneCache::Process().Free(blocks_[plane], blockSizes_[plane]);
  blocks_[plane] = nullptr;
}

ImageSysMem::~ImageSysMem() {
  for (int c = 0; c < 4; ++c) FreeBlock(c);
  this->info = {};
  this->data = {};
}

Status ImageSysMem::AllocateImage(ImageInfo* info, ImageData* data, LMXCustomImageFormat* custom, int32_t options) {
  LMX_CHECK(info && data, LMX_STATUS_HANDLE_INVALID);
  std::memset(data, 0, sizeof(*data));
  data->format = info->format;
  PlaneInfo planes{};
  int32_t num_planes = lmx::QueryPlaneInfo(info, options, &planes);
  if (num_planes == 0 && custom) {
    int32_t count = 0;
    // A provider's count outside 1..4 is treated as no answer.
    if (custom->QueryPlaneInfo(info, &planes, &count) >= 0 && count > 0 && count <= 4) num_planes = count;
  }
  LMX_CHECK(num_planes, LMX_STATUS_PARAM_UNSUPPORTED);

  for (int32_t c = 0; c < num_planes; ++c) {
    const auto& plane = planes.plane[c];
    if (plane.bytesPerPixel == 0) {
      data->pitches[c] = 0;
      data->planes[c] = nullptr;
      continue;
    }
    // Widths and heights arrive as unsigned copies of signed fields: read them back
    // as signed so a negative dimension fails instead of wrapping. Pitch and size
    // must fit the signed 32-bit sizes of the description; anything else fails
    // like an allocation that returned nothing.
    const int32_t height = static_cast<int32_t>(plane.height);
    const Checked pitch =
        CheckedAlignUp(CheckedMul(static_cast<int32_t>(plane.width), plane.bytesPerPixel), kRowAlignment);
    const Checked size = CheckedMul(pitch, height);
    const bool fits = height >= 0 && IsSize32(pitch) && IsSize32(size);
    uint8_t* block = nullptr;
    if (fits) {
      const size_t alignment = *size < kPageAlignedFrom ? 64 : 4096;
      block = static_cast<uint8_t*>(PlaneCache::Process().Allocate(static_cast<size_t>(*size), alignment));
    }
    data->pitches[c] = fits ? static_cast<int32_t>(*pitch) : 0;
    data->planes[c] = block;
    LMX_CHECK(data->planes[c], LMX_STATUS_ALLOC_FAILED);
    // A block replaced here belongs to a detached plane's holder now (DetachPlane).
    blocks_[c] = block;
    blockSizes_[c] = static_cast<size_t>(*size);
    if (KeyFormat(info->format) == Image::PIXEL_FORMAT_YUY2) ClearLoneTailPixel(block, data->pitches[c], plane);
    LogAllocated(*size, info->format, __FILE__, __LINE__, LMX_FUNCSIG);
  }
  return LMX_STATUS_NO_ERROR;
}

Status ImageSysMem::DetachPlane(uint8_t* plane) {
  bool held = false;
  for (uint8_t* current : this->data.planes) held = held || (plane && current == plane);
  if (!held) return LMX_STATUS_ITEM_UNAVAILABLE;

  const ImageData old = this->data;
  uint8_t* oldBlocks[4];
  size_t oldSizes[4];
  std::memcpy(oldBlocks, blocks_, sizeof(oldBlocks));
  std::memcpy(oldSizes, blockSizes_, sizeof(oldSizes));
  (void)AllocateImage(&this->info, &this->data, nullptr, this->options);
  for (uint8_t*& block : blocks_)
    if (block == plane) block = nullptr;  // the holder owns it from now on
  PlaneInfo planes{};
  const int32_t count = lmx::QueryPlaneInfo(&this->info, this->options, &planes);
  // The rows go from the fresh planes into the old memory, which the holder keeps;
  // the image continues on the fresh planes. This direction is the established
  // behaviour that callers of this operation rely on.
  for (int32_t c = 0; c < count; ++c) {
    if (!old.planes[c] || !this->data.planes[c]) continue;
    const size_t rowBytes = static_cast<size_t>(planes.plane[c].width) * planes.plane[c].bytesPerPixel;
    for (uint32_t y = 0; y < planes.plane[c].height; ++y) {
      std::memcpy(old.planes[c] + static_cast<ptrdiff_t>(y) * old.pitches[c],
                  this->data.planes[c] + static_cast<ptrdiff_t>(y) * this->data.pitches[c], rowBytes);
    }
  }
  // The detached block now belongs to its holder (free it with AlignedFree). Other
  // owned blocks that the fresh planes replaced have no holder: free them rather
  // than leak them.
  for (int c = 0; c < 4; ++c) {
    if (oldBlocks[c] == plane) {
      PlaneCache::Process().Disown(oldSizes[c]);
    } else if (oldBlocks[c] && oldBlocks[c] != blocks_[c]) {
      PlaneCache::Process().Free(oldBlocks[c], oldSizes[c]);
    }
  }
  return LMX_STATUS_NO_ERROR;
}

Status CreateImageSysMem(const ImageInfo& info, int32_t key, const ImageData* adopt, int32_t options, Base* provider,
                         BaseImage** result) {
  LMX_CHECK(result, LMX_STATUS_HANDLE_INVALID);
  *result = nullptr;
  auto* custom =
      provider ? static_cast<LMXCustomImageFormat*>(provider->QueryInstance(LMXCustomImageFormat::kIid)) : nullptr;
  auto* storage = new (std::nothrow) ImageSysMem(info, key, options);
  if (!storage) return LMX_STATUS_ALLOC_FAILED;
  Status sts = LMX_STATUS_NO_ERROR;
  if (adopt) {
    *storage->mutable_data() = *adopt;
    if (storage->mutable_data()->format == 0) storage->mutable_data()->format = key;
  } else {
    ImageInfo own = storage->Info();
    sts = storage->AllocateImage(&own, storage->mutable_data(), custom, options);
  }
  *result = storage;
  return sts;
}

}  // namespace lmx
