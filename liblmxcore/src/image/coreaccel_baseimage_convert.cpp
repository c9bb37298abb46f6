// BaseImage::CopySystemBuffer: the object side of converting one buffer of an
// image into another. The host's memory provider is offered the conversion
// first; otherwise the routing of coreaccel_baseimage_route.h runs the kernel (or
// names the intermediate format), reading the depth scale from this image.
#include "image/coreaccel_baseimage.h"
#include "image/coreaccel_baseimage_route.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

// The routing's view of where this image keeps its depth scale (its metadata).
class ImageDepthScale final : public DepthScaleSource {
 public:
  explicit ImageDepthScale(BaseImage& image) : image_(image) {}
  Status GetDepthScale(float* scale) override { return image_.GetDepthScale(scale); }

 private:
  BaseImage& image_;
};

// The host's memory provider of this image, if it converts.
class ProviderHandOff final : public ConversionHandOff {
 public:
  explicit ProviderHandOff(LMXCustomImageFormat* custom) : custom_(custom) {}
  Status Offer(ImageInfo* src_info, ImageData* src, ImageInfo* dst_info, ImageData* dst,
               Image::PixelFormat* interm) override {
    return custom_->CopySystemBuffer(src_info, src, dst_info, dst, interm);
  }

 private:
  LMXCustomImageFormat* custom_;
};

}  // namespace

Status BaseImage::CopySystemBuffer(ImageInfo* src_info, ImageData* src, ImageInfo* dst_info, ImageData* dst,
                                   PixelFormat* interm) {
  LMX_CHECK(src_info && src && dst_info && dst, LMX_STATUS_HANDLE_INVALID);
  // A host's memory provider may take the conversion over once the sizes are
  // checked (inside the routing's trace scope); a negative answer hands it back.
  LMXCustomImageFormat* custom = nullptr;
  if (Base* provider = GetMemoryProvider()) custom = provider->QueryInstance<LMXCustomImageFormat>();
  ProviderHandOff handOff(custom);
  ImageDepthScale depth(*this);
  return ConvertImageBuffer(src_info, src, dst_info, dst, depth, interm, custom ? &handOff : nullptr);
}

}  // namespace lmx
