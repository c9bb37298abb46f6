// frame_convert.h: frames in and out of the library's image objects.
//
// Conversions are the library's: a frame goes into an image object in its own
// format, and comes out by acquiring the wanted format (with a rotation), so the
// library's routing and intermediate passes do the work. A flip or mirror goes
// through ExportData. Errors name the step and give the status text.
#pragma once

#include <optional>
#include <string>

#include "image_io.h"
#include "library.h"

namespace lmxtool {

using Norvik::Lumetra::Image;

struct ConvertOptions {
  int32_t to = 0;       // pixel format; 0: the source's
  int32_t rotate = 0;   // degrees: 0, 90, 180, 270
  bool flip = false;    // upside down
  bool mirror = false;  // left to right
};

// The metadata identifier of an image's depth scale (a float).
inline constexpr int32_t kDepthScaleId = 0x24740F78;

// A new image object holding the frame (its format and size); checks that the
// frame has exactly the bytes of that layout. depthScale, when given, is attached.
std::string LoadImage(LMXAllocator* allocator, const Frame& frame, std::optional<float> depthScale, Ref<Image>* image);
// The image in options.to, rotated, flipped and mirrored as asked.
std::string ReadImage(Image* image, const ConvertOptions& options, Frame* out);
// LoadImage then ReadImage.
std::string ConvertFrame(LMXAllocator* allocator, const Frame& in, const ConvertOptions& options,
                         std::optional<float> depthScale, Frame* out);

}  // namespace lmxtool
