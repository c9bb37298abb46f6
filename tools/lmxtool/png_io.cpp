// PNG in and out through libpng (8- and 16-bit grey, RGB, RGBA).
#include <png.h>

#include <bit>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "image_io.h"

namespace lmxtool {

namespace {

constexpr png_uint_32 kMaxSide = 1 << 15;

// libpng reports errors by longjmp; its message is kept for ours.
void OnPngError(png_structp png, png_const_charp message) {
  auto* text = static_cast<std::string*>(png_get_error_ptr(png));
  if (text) *text = message;
  png_longjmp(png, 1);
}
void OnPngWarning(png_structp, png_const_charp) {}

}  // namespace

bool PngSupported() { return true; }

std::string ReadPng(const std::filesystem::path& path, int64_t maxPixels, Raster* raster) {
  FILE* file = std::fopen(path.string().c_str(), "rb");
  if (!file) return "cannot open '" + path.string() + "': " + std::strerror(errno);
  std::string message;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &message, OnPngError, OnPngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    std::fclose(file);
    return "out of memory reading '" + path.string() + "'";
  }
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return "'" + path.string() + "' is not a readable PNG file (" + message + ")";
  }
  png_init_io(png, file);
  png_read_info(png, info);
  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  if (width > kMaxSide || height > kMaxSide) png_error(png, "too large");
  if (std::string refused = OversizeError(path, width, height, maxPixels); !refused.empty()) {
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return refused;
  }
  // Palettes and low bit depths become 8-bit samples; transparency becomes alpha.
  png_set_expand(png);
  if constexpr (std::endian::native == std::endian::little) png_set_swap(png);
  png_read_update_info(png, info);
  raster->width = static_cast<int32_t>(width);
  raster->height = static_cast<int32_t>(height);
  raster->channels = png_get_channels(png, info);
  raster->bitDepth = png_get_bit_depth(png, info);
  if (raster->channels == 2) png_error(png, "grey with alpha is not supported");
  raster->bytes.assign(raster->RowBytes() * raster->height, 0);
  rows.resize(raster->height);
  for (int32_t y = 0; y < raster->height; ++y) rows[y] = raster->bytes.data() + raster->RowBytes() * y;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(file);
  return "";
}

std::string WritePng(const std::filesystem::path& path, const Raster& raster) {
  return WriteAtomically(path, [&](FILE* file) -> std::string {
    std::string message;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &message, OnPngError, OnPngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
      png_destroy_write_struct(&png, nullptr);
      return "out of memory writing '" + path.string() + "'";
    }
    std::vector<png_bytep> rows(raster.height);
    if (setjmp(png_jmpbuf(png))) {
      png_destroy_write_struct(&png, &info);
      return "cannot write '" + path.string() + "' (" + message + ")";
    }
    const int colour = raster.channels == 1   ? PNG_COLOR_TYPE_GRAY
                       : raster.channels == 3 ? PNG_COLOR_TYPE_RGB
                                              : PNG_COLOR_TYPE_RGB_ALPHA;
    png_init_io(png, file);
    png_set_IHDR(png, info, raster.width, raster.height, raster.bitDepth, colour, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if constexpr (std::endian::native == std::endian::little) png_set_swap(png);
    for (int32_t y = 0; y < raster.height; ++y)
      rows[y] = const_cast<png_bytep>(raster.bytes.data() + raster.RowBytes() * y);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return "";
  });
}

}  // namespace lmxtool
