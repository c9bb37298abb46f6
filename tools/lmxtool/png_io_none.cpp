// Builds without libpng: PNG files are refused with a clear message.
#include "image_io.h"

namespace lmxtool {

namespace {
std::string Unsupported(const std::filesystem::path& path) {
  return "'" + path.string() + "': this lmxtool was built without PNG support; use .pgm/.ppm or raw";
}
}  // namespace

bool PngSupported() { return false; }
std::string ReadPng(const std::filesystem::path& path, int64_t, Raster*) { return Unsupported(path); }
std::string WritePng(const std::filesystem::path& path, const Raster&) { return Unsupported(path); }

}  // namespace lmxtool
