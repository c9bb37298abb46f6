// Frames in and out of image objects through the public image interfaces.
#include "frame_convert.h"

#include <cstring>
#include <type_traits>

#include "core_metadata.h"
#include "pixel_formats.h"

namespace lmxtool {

using namespace Norvik::Lumetra;

namespace {

constexpr int32_t kExportFlip = 2;    // ExportData: bottom row first
constexpr int32_t kExportMirror = 1;  // ExportData: horizontal mirror

std::string Refused(const std::string& step, Status sts) { return step + ": " + StatusText(sts); }

// Plane layout of a description (with rotation bits); the count of planes.
int32_t Layout(Image* image, Image::ImageInfo info, LMXImageService::PlaneInfo* planes) {
  auto* service = static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid));
  return service ? service->QueryPlaneInfo(&info, 0, planes) : 0;
}

size_t PackedSize(const LMXImageService::PlaneInfo& planes, int32_t count) {
  size_t size = 0;
  for (int32_t c = 0; c < count; ++c)
    size += static_cast<size_t>(planes.plane[c].width) * planes.plane[c].bytesPerPixel * planes.plane[c].height;
  return size;
}

// Copies packed planes into pitched ones (intoImage) or the other way round.
template <class Packed>
void CopyPlanes(const LMXImageService::PlaneInfo& planes, int32_t count, Packed* packed, const Image::ImageData& data) {
  for (int32_t c = 0; c < count; ++c) {
    const size_t rowBytes = static_cast<size_t>(planes.plane[c].width) * planes.plane[c].bytesPerPixel;
    for (uint32_t y = 0; y < planes.plane[c].height; ++y, packed += rowBytes) {
      uint8_t* row = data.planes[c] + static_cast<ptrdiff_t>(y) * data.pitches[c];
      if constexpr (std::is_const_v<Packed>) {
        std::memcpy(row, packed, rowBytes);
      } else {
        std::memcpy(packed, row, rowBytes);
      }
    }
  }
}

}  // namespace

std::string LoadImage(LMXAllocator* allocator, const Frame& frame, std::optional<float> depthScale, Ref<Image>* image) {
  const std::string name = PixelFormatText(frame.format);
  Image::ImageInfo info{frame.width, frame.height, frame.format, 0};
  Status sts = allocator->CreateImage(&info, 0, nullptr, image->Out());
  if (sts < 0) return Refused("creating a " + name + " image", sts);

  LMXImageService::PlaneInfo planes{};
  const int32_t count = Layout(image->Get(), info, &planes);
  if (count <= 0)
    return "the library has no plane layout for a " + std::to_string(frame.width) + "x" + std::to_string(frame.height) +
           " " + name + " frame";
  const size_t expected = PackedSize(planes, count);
  if (frame.bytes.size() != expected)
    return "the frame has " + std::to_string(frame.bytes.size()) + " bytes; a " + std::to_string(frame.width) + "x" +
           std::to_string(frame.height) + " " + name + " frame has " + std::to_string(expected);

  if (depthScale) {
    auto* metadata = static_cast<Metadata*>((*image)->QueryInstance(Metadata::kIid));
    float scale = *depthScale;
    sts = metadata ? metadata->AttachBuffer(kDepthScaleId, reinterpret_cast<uint8_t*>(&scale), sizeof scale)
                   : LMX_STATUS_ITEM_UNAVAILABLE;
    if (sts < 0) return Refused("attaching the depth scale", sts);
  }

  Image::ImageData data{};
  sts = (*image)->AcquireAccess(Image::ACCESS_WRITE, static_cast<Image::PixelFormat>(frame.format), 0, &data);
  if (sts < 0) return Refused("writing the " + name + " image", sts);
  CopyPlanes(planes, count, frame.bytes.data(), data);
  sts = (*image)->ReleaseAccess(&data);
  if (sts < 0) return Refused("finishing the write of the " + name + " image", sts);
  return "";
}

std::string ReadImage(Image* image, const ConvertOptions& options, Frame* out) {
  Image::ImageInfo info{};
  Status sts = image->QueryInfo(&info);
  if (sts < 0) return Refused("querying the image", sts);
  const int32_t to = options.to ? options.to : (info.format & kPixelFormatMask);
  const std::string name = PixelFormatText(to);
  Image::ImageInfo outInfo{info.width, info.height,
                           to | static_cast<int32_t>(static_cast<uint32_t>(options.rotate) << kRotationShift), 0};
  LMXImageService::PlaneInfo planes{};
  const int32_t count = Layout(image, outInfo, &planes);
  if (count <= 0) return "the library has no plane layout for " + name;
  out->format = to;
  out->width = static_cast<int32_t>(planes.plane[0].width);
  out->height = static_cast<int32_t>(planes.plane[0].height);
  out->bytes.assign(PackedSize(planes, count), 0);
  const std::string step =
      "converting to " + name + (options.rotate ? " rotated " + std::to_string(options.rotate) : "");

  if (options.flip || options.mirror) {
    // Export into our own packed planes: pitches are the packed row sizes.
    Image::ImageData data{};
    data.format = outInfo.format;
    uint8_t* at = out->bytes.data();
    for (int32_t c = 0; c < count; ++c) {
      data.pitches[c] = static_cast<int32_t>(planes.plane[c].width * planes.plane[c].bytesPerPixel);
      data.planes[c] = at;
      at += static_cast<size_t>(data.pitches[c]) * planes.plane[c].height;
    }
    const int32_t mode = (options.flip ? kExportFlip : 0) | (options.mirror ? kExportMirror : 0);
    sts = image->ExportData(&data, mode);
    if (sts < 0) return Refused(step + (options.mirror ? " mirrored" : " flipped"), sts);
    return "";
  }

  Image::ImageData data{};
  sts = image->AcquireAccess(Image::ACCESS_READ, static_cast<Image::PixelFormat>(to), options.rotate, &data);
  if (sts < 0) return Refused(step, sts);
  CopyPlanes(planes, count, out->bytes.data(), data);
  image->ReleaseAccess(&data);
  return "";
}

std::string ConvertFrame(LMXAllocator* allocator, const Frame& in, const ConvertOptions& options,
                         std::optional<float> depthScale, Frame* out) {
  Ref<Image> image;
  std::string error = LoadImage(allocator, in, depthScale, &image);
  if (error.empty()) error = ReadImage(image.Get(), options, out);
  return error;
}

}  // namespace lmxtool
