// Names of the pixel formats on the command line.
#include "pixel_formats.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

namespace lmxtool {

namespace {

using Image = Norvik::Lumetra::Image;

struct NamedFormat {
  const char* name;
  PixelFormat format;
};

constexpr NamedFormat kFormats[] = {
    {"YUY2", Image::PIXEL_FORMAT_YUY2},
    {"NV12", Image::PIXEL_FORMAT_NV12},
    {"BGRA", Image::PIXEL_FORMAT_BGRA},
    {"BGR", Image::PIXEL_FORMAT_BGR},
    {"RGBA", Image::PIXEL_FORMAT_RGBA},
    {"RGB", Image::PIXEL_FORMAT_RGB},
    {"Y8", Image::PIXEL_FORMAT_Y8},
    {"Y8_RELATIVE", Image::PIXEL_FORMAT_Y8_RELATIVE},
    {"Y16", Image::PIXEL_FORMAT_Y16},
    {"DEPTH", Image::PIXEL_FORMAT_DEPTH},
    {"DEPTH_NATIVE", Image::PIXEL_FORMAT_DEPTH_NATIVE},
    {"DEPTH_FLOAT", Image::PIXEL_FORMAT_DEPTH_FLOAT},
};

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

std::optional<PixelFormat> ParsePixelFormat(const std::string& name) {
  const std::string wanted = Upper(name);
  for (const auto& entry : kFormats)
    if (wanted == entry.name) return entry.format;
  return std::nullopt;
}

std::string PixelFormatText(int32_t format) {
  for (const auto& entry : kFormats)
    if (entry.format == format) return entry.name;
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(format));
  return text;
}

std::string PixelFormatList() {
  std::string list;
  for (const auto& entry : kFormats) list += (list.empty() ? "" : ", ") + std::string(entry.name);
  return list;
}

bool IsDepthFormat(int32_t format) {
  return format == Image::PIXEL_FORMAT_DEPTH || format == Image::PIXEL_FORMAT_DEPTH_NATIVE ||
         format == Image::PIXEL_FORMAT_DEPTH_FLOAT;
}

}  // namespace lmxtool
