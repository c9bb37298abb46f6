// image_io.h: frames in files (raw planes, PNM, PNG).
//
// A Frame is what lmxtool moves between files and image objects: a pixel format,
// a size and the format's planes packed one after another with unpadded rows.
// Picture files (PNM, PNG) hold a Raster, interleaved 8- or 16-bit samples;
// ToRaster/FromRaster map between the two. Every function returns an empty string
// on success, else a message that names the file. Writers never leave a partial
// file behind: they write "<path>.partial" and rename it when complete.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lmxtool {

struct Frame {
  int32_t width = 0;
  int32_t height = 0;
  int32_t format = 0;  // Image::PixelFormat
  std::vector<uint8_t> bytes;
};

struct Raster {
  int32_t width = 0;
  int32_t height = 0;
  int channels = 0;  // 1 grey, 3 RGB, 4 RGBA
  int bitDepth = 8;  // 8 or 16; 16-bit samples in the machine's byte order
  std::vector<uint8_t> bytes;
  size_t RowBytes() const { return static_cast<size_t>(width) * channels * (bitDepth / 8); }
};

enum class FileKind { kRaw, kPnm, kPng };
// By extension: .pgm/.ppm/.pnm, .png, anything else is raw.
FileKind KindOfPath(const std::filesystem::path& path);
bool PngSupported();  // libpng was found when lmxtool was built

std::string ReadBytes(const std::filesystem::path& path, std::vector<uint8_t>* bytes);
// Picture readers refuse a file whose header declares more than maxPixels pixels
// before they allocate for its samples.
std::string ReadPnm(const std::filesystem::path& path, int64_t maxPixels, Raster* raster);
std::string ReadPng(const std::filesystem::path& path, int64_t maxPixels, Raster* raster);
// The refusal of a declared size above maxPixels; empty if it fits.
std::string OversizeError(const std::filesystem::path& path, int64_t width, int64_t height, int64_t maxPixels);

// Writes through write(FILE*) into a temporary file renamed to path on success.
std::string WriteAtomically(const std::filesystem::path& path, const std::function<std::string(FILE*)>& write);
std::string WriteBytes(const std::filesystem::path& path, const void* data, size_t size);
std::string WritePnm(const std::filesystem::path& path, const Raster& raster);  // PGM or PPM; alpha dropped
std::string WritePng(const std::filesystem::path& path, const Raster& raster);

// The pixel format of a raster (wanted may pick a compatible one: DEPTH for 16-bit
// grey, BGR for colour, ...) as a frame.
std::string FrameFromRaster(Raster raster, std::optional<int32_t> wanted, Frame* frame);
// A picture of the frame: grey, colour, or depth colourised over its range
// (16-bit grey instead when colourise is false).
std::string RasterFromFrame(const Frame& frame, bool colouriseDepth, Raster* raster);

// Whether RasterFromFrame can make a picture of the format.
bool HasPictureForm(int32_t format);

// Reads a picture file, or a raw one (which needs a format and a size).
inline constexpr int64_t kDefaultMaxPixels = 100'000'000;
struct InputHints {
  std::optional<int32_t> format;
  std::optional<std::pair<int32_t, int32_t>> size;
  int64_t maxPixels = kDefaultMaxPixels;  // a larger declared size is refused unread
};
std::string LoadFrame(const std::filesystem::path& path, const InputHints& hints, Frame* frame);
// Writes raw planes, or a picture (depth colourised in PNG, 16-bit grey in PGM).
std::string SaveFrame(const std::filesystem::path& path, const Frame& frame);

}  // namespace lmxtool
