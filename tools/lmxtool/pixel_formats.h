// pixel_formats.h: the pixel formats lmxtool names on its command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lmximage.h"

namespace lmxtool {

using PixelFormat = Norvik::Lumetra::Image::PixelFormat;

// "YUY2", "nv12", "depth_native", ... (case-insensitive); nullopt if unknown.
std::optional<PixelFormat> ParsePixelFormat(const std::string& name);
// The command-line name of a format ("YUY2"); "0x..." for others.
std::string PixelFormatText(int32_t format);
// The names ParsePixelFormat accepts, comma-separated, for help and errors.
std::string PixelFormatList();

bool IsDepthFormat(int32_t format);

}  // namespace lmxtool
