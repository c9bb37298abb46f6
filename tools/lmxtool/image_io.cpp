// Frames in files: raw planes, the raster mapping of pixel formats, and the
// write-then-rename that keeps partial files away.
#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "lmximage.h"
#include "pixel_formats.h"

namespace lmxtool {

namespace {

using Image = Norvik::Lumetra::Image;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// A dark-blue (near) to red (far) ramp; 0 (no depth) stays black.
void DepthColour(float t, uint8_t* rgb) {
  t = std::clamp(t, 0.0f, 1.0f);
  const float r = std::clamp(1.5f - std::fabs(4.0f * t - 3.0f), 0.0f, 1.0f);
  const float g = std::clamp(1.5f - std::fabs(4.0f * t - 2.0f), 0.0f, 1.0f);
  const float b = std::clamp(1.5f - std::fabs(4.0f * t - 1.0f), 0.0f, 1.0f);
  rgb[0] = static_cast<uint8_t>(std::lround(r * 255.0f));
  rgb[1] = static_cast<uint8_t>(std::lround(g * 255.0f));
  rgb[2] = static_cast<uint8_t>(std::lround(b * 255.0f));
}

template <class T>
void ColouriseDepth(const Frame& frame, Raster* raster) {
  const size_t count = static_cast<size_t>(frame.width) * frame.height;
  const T* values = reinterpret_cast<const T*>(frame.bytes.data());
  T low = 0, high = 0;
  bool any = false;
  for (size_t i = 0; i < count; ++i) {
    if (!(values[i] > 0)) continue;
    low = any ? std::min(low, values[i]) : values[i];
    high = any ? std::max(high, values[i]) : values[i];
    any = true;
  }
  const float span = high > low ? static_cast<float>(high - low) : 1.0f;
  raster->channels = 3;
  raster->bitDepth = 8;
  raster->bytes.assign(count * 3, 0);
  for (size_t i = 0; i < count; ++i)
    if (values[i] > 0) DepthColour(static_cast<float>(values[i] - low) / span, &raster->bytes[i * 3]);
}

}  // namespace

FileKind KindOfPath(const std::filesystem::path& path) {
  const std::string extension = Lower(path.extension().string());
  if (extension == ".pgm" || extension == ".ppm" || extension == ".pnm") return FileKind::kPnm;
  if (extension == ".png") return FileKind::kPng;
  return FileKind::kRaw;
}

std::string ReadBytes(const std::filesystem::path& path, std::vector<uint8_t>* bytes) {
  FILE* file = std::fopen(path.string().c_str(), "rb");
  if (!file) return "cannot open '" + path.string() + "': " + std::strerror(errno);
  bytes->clear();
  uint8_t buffer[65536];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes->insert(bytes->end(), buffer, buffer + got);
  const bool failed = std::ferror(file);
  std::fclose(file);
  return failed ? "cannot read '" + path.string() + "'" : "";
}

std::string OversizeError(const std::filesystem::path& path, int64_t width, int64_t height, int64_t maxPixels) {
  if (width * height <= maxPixels) return "";
  return "'" + path.string() + "' declares " + std::to_string(width) + "x" + std::to_string(height) +
         " pixels, more than --max-pixels " + std::to_string(maxPixels);
}

std::string WriteAtomically(const std::filesystem::path& path, const std::function<std::string(FILE*)>& write) {
  std::filesystem::path partial = path;
  partial += ".partial";
  FILE* file = std::fopen(partial.string().c_str(), "wb");
  if (!file) return "cannot create '" + path.string() + "': " + std::strerror(errno);
  std::string error = write(file);
  if (std::fclose(file) != 0 && error.empty()) error = "cannot write '" + path.string() + "'";
  std::error_code code;
  if (error.empty()) {
    std::filesystem::rename(partial, path, code);
    if (code) error = "cannot write '" + path.string() + "': " + code.message();
  }
  if (!error.empty()) std::filesystem::remove(partial, code);
  return error;
}

std::string WriteBytes(const std::filesystem::path& path, const void* data, size_t size) {
  return WriteAtomically(path, [&](FILE* file) -> std::string {
    if (std::fwrite(data, 1, size, file) != size) return "cannot write '" + path.string() + "'";
    return "";
  });
}

std::string FrameFromRaster(Raster raster, std::optional<int32_t> wanted, Frame* frame) {
  int32_t format = 0;
  std::vector<int32_t> allowed;
  if (raster.channels == 1 && raster.bitDepth == 8) {
    allowed = {Image::PIXEL_FORMAT_Y8, Image::PIXEL_FORMAT_Y8_RELATIVE};
  } else if (raster.channels == 1 && raster.bitDepth == 16) {
    allowed = {Image::PIXEL_FORMAT_Y16, Image::PIXEL_FORMAT_DEPTH, Image::PIXEL_FORMAT_DEPTH_NATIVE};
  } else if (raster.channels == 3 && raster.bitDepth == 8) {
    allowed = {Image::PIXEL_FORMAT_RGB, Image::PIXEL_FORMAT_BGR};
  } else if (raster.channels == 4 && raster.bitDepth == 8) {
    allowed = {Image::PIXEL_FORMAT_RGBA, Image::PIXEL_FORMAT_BGRA};
  } else {
    return "a " + std::to_string(raster.bitDepth) + "-bit picture of " + std::to_string(raster.channels) +
           " channels has no pixel format";
  }
  format = allowed.front();
  if (wanted) {
    if (std::find(allowed.begin(), allowed.end(), *wanted) == allowed.end())
      return "--from " + PixelFormatText(*wanted) + " does not fit a " + std::to_string(raster.bitDepth) +
             "-bit picture of " + std::to_string(raster.channels) + " channels";
    format = *wanted;
  }
  // Blue-first formats hold the file's red and blue the other way round.
  if (format == Image::PIXEL_FORMAT_BGR || format == Image::PIXEL_FORMAT_BGRA)
    for (size_t i = 0; i + 2 < raster.bytes.size(); i += raster.channels)
      std::swap(raster.bytes[i], raster.bytes[i + 2]);
  frame->width = raster.width;
  frame->height = raster.height;
  frame->format = format;
  frame->bytes = std::move(raster.bytes);
  return "";
}

std::string RasterFromFrame(const Frame& frame, bool colouriseDepth, Raster* raster) {
  raster->width = frame.width;
  raster->height = frame.height;
  const size_t pixels = static_cast<size_t>(frame.width) * frame.height;
  const auto expect = [&](size_t bytesPerPixel) { return frame.bytes.size() >= pixels * bytesPerPixel; };
  switch (frame.format) {
    case Image::PIXEL_FORMAT_Y8:
    case Image::PIXEL_FORMAT_Y8_RELATIVE:
      if (!expect(1)) break;
      *raster = Raster{frame.width, frame.height, 1, 8, {frame.bytes.begin(), frame.bytes.begin() + pixels}};
      return "";
    case Image::PIXEL_FORMAT_Y16:
      if (!expect(2)) break;
      *raster = Raster{frame.width, frame.height, 1, 16, {frame.bytes.begin(), frame.bytes.begin() + pixels * 2}};
      return "";
    case Image::PIXEL_FORMAT_DEPTH:
    case Image::PIXEL_FORMAT_DEPTH_NATIVE:
      if (!expect(2)) break;
      if (colouriseDepth) {
        ColouriseDepth<uint16_t>(frame, raster);
      } else {
        *raster = Raster{frame.width, frame.height, 1, 16, {frame.bytes.begin(), frame.bytes.begin() + pixels * 2}};
      }
      return "";
    case Image::PIXEL_FORMAT_DEPTH_FLOAT:
      if (!expect(4)) break;
      ColouriseDepth<float>(frame, raster);
      return "";
    case Image::PIXEL_FORMAT_RGB:
    case Image::PIXEL_FORMAT_BGR:
    case Image::PIXEL_FORMAT_RGBA:
    case Image::PIXEL_FORMAT_BGRA: {
      const int channels = (frame.format == Image::PIXEL_FORMAT_RGB || frame.format == Image::PIXEL_FORMAT_BGR) ? 3 : 4;
      if (!expect(channels)) break;
      *raster = Raster{
          frame.width, frame.height, channels, 8, {frame.bytes.begin(), frame.bytes.begin() + pixels * channels}};
      if (frame.format == Image::PIXEL_FORMAT_BGR || frame.format == Image::PIXEL_FORMAT_BGRA)
        for (size_t i = 0; i + 2 < raster->bytes.size(); i += channels)
          std::swap(raster->bytes[i], raster->bytes[i + 2]);
      return "";
    }
    default:
      return PixelFormatText(frame.format) + " has no picture form; convert --to RGB (or Y8) for a picture file";
  }
  return "the " + PixelFormatText(frame.format) + " frame is shorter than its size";
}

bool HasPictureForm(int32_t format) {
  return format != Image::PIXEL_FORMAT_YUY2 && format != Image::PIXEL_FORMAT_NV12 &&
         ParsePixelFormat(PixelFormatText(format));
}

std::string LoadFrame(const std::filesystem::path& path, const InputHints& hints, Frame* frame) {
  const FileKind kind = KindOfPath(path);
  if (kind == FileKind::kRaw) {
    if (!hints.format) return "'" + path.string() + "' is a raw frame: give its format with --from";
    if (!hints.size) return "'" + path.string() + "' is a raw frame: give its size with --size WxH";
    if (std::string error = OversizeError(path, hints.size->first, hints.size->second, hints.maxPixels); !error.empty())
      return error;
    frame->format = *hints.format;
    frame->width = hints.size->first;
    frame->height = hints.size->second;
    return ReadBytes(path, &frame->bytes);
  }
  Raster raster;
  std::string error =
      kind == FileKind::kPnm ? ReadPnm(path, hints.maxPixels, &raster) : ReadPng(path, hints.maxPixels, &raster);
  if (!error.empty()) return error;
  if (hints.size && (hints.size->first != raster.width || hints.size->second != raster.height))
    return "'" + path.string() + "' is " + std::to_string(raster.width) + "x" + std::to_string(raster.height) +
           ", not the --size given";
  error = FrameFromRaster(std::move(raster), hints.format, frame);
  return error.empty() ? "" : "'" + path.string() + "': " + error;
}

std::string SaveFrame(const std::filesystem::path& path, const Frame& frame) {
  const FileKind kind = KindOfPath(path);
  if (kind == FileKind::kRaw) return WriteBytes(path, frame.bytes.data(), frame.bytes.size());
  Raster raster;
  const std::string error = RasterFromFrame(frame, kind == FileKind::kPng, &raster);
  if (!error.empty()) return "'" + path.string() + "': " + error;
  return kind == FileKind::kPnm ? WritePnm(path, raster) : WritePng(path, raster);
}

}  // namespace lmxtool
