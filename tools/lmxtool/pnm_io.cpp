// PGM and PPM (binary, 8- and 16-bit) in and out.
#include <bit>
#include <cctype>
#include <cstdio>

#include "image_io.h"

namespace lmxtool {

namespace {

constexpr int32_t kMaxSide = 1 << 15;

// Reads one header number, skipping white space and # comments.
bool ReadNumber(const std::vector<uint8_t>& bytes, size_t* at, long* value) {
  while (*at < bytes.size()) {
    if (bytes[*at] == '#') {
      while (*at < bytes.size() && bytes[*at] != '\n') ++*at;
    } else if (std::isspace(bytes[*at])) {
      ++*at;
    } else {
      break;
    }
  }
  long number = 0;
  size_t digits = 0;
  for (; *at < bytes.size() && std::isdigit(bytes[*at]) && digits < 9; ++*at, ++digits)
    number = number * 10 + (bytes[*at] - '0');
  *value = number;
  return digits > 0;
}

// PNM stores 16-bit samples big-endian.
void SwapSamplesIfLittleEndian(std::vector<uint8_t>* bytes) {
  if constexpr (std::endian::native == std::endian::little)
    for (size_t i = 0; i + 1 < bytes->size(); i += 2) std::swap((*bytes)[i], (*bytes)[i + 1]);
}

}  // namespace

std::string ReadPnm(const std::filesystem::path& path, int64_t maxPixels, Raster* raster) {
  std::vector<uint8_t> bytes;
  std::string error = ReadBytes(path, &bytes);
  if (!error.empty()) return error;
  const std::string bad = "'" + path.string() + "' is not a binary PGM or PPM file";
  if (bytes.size() < 3 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '6')) return bad;
  size_t at = 2;
  long width = 0, height = 0, maxValue = 0;
  if (!ReadNumber(bytes, &at, &width) || !ReadNumber(bytes, &at, &height) || !ReadNumber(bytes, &at, &maxValue) ||
      at >= bytes.size() || !std::isspace(bytes[at]))
    return bad;
  ++at;  // the single white-space character before the samples
  if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide || maxValue <= 0 || maxValue > 65535)
    return "'" + path.string() + "' has an unsupported size or sample range";
  if (error = OversizeError(path, width, height, maxPixels); !error.empty()) return error;
  raster->width = static_cast<int32_t>(width);
  raster->height = static_cast<int32_t>(height);
  raster->channels = bytes[1] == '5' ? 1 : 3;
  raster->bitDepth = maxValue > 255 ? 16 : 8;
  const size_t size = raster->RowBytes() * raster->height;
  if (bytes.size() - at < size) return "'" + path.string() + "' is truncated";
  raster->bytes.assign(bytes.begin() + static_cast<ptrdiff_t>(at), bytes.begin() + static_cast<ptrdiff_t>(at + size));
  if (raster->bitDepth == 16) SwapSamplesIfLittleEndian(&raster->bytes);
  return "";
}

std::string WritePnm(const std::filesystem::path& path, const Raster& raster) {
  const int channels = raster.channels == 1 ? 1 : 3;
  const int sampleBytes = raster.bitDepth / 8;
  std::vector<uint8_t> samples;
  samples.reserve(static_cast<size_t>(raster.width) * raster.height * channels * sampleBytes);
  const size_t pixelBytes = static_cast<size_t>(raster.channels) * sampleBytes;
  for (size_t at = 0; at + pixelBytes <= raster.bytes.size(); at += pixelBytes)
    samples.insert(samples.end(), raster.bytes.begin() + static_cast<ptrdiff_t>(at),
                   raster.bytes.begin() + static_cast<ptrdiff_t>(at + static_cast<size_t>(channels) * sampleBytes));
  if (sampleBytes == 2) SwapSamplesIfLittleEndian(&samples);
  return WriteAtomically(path, [&](FILE* file) -> std::string {
    std::fprintf(file, "P%c\n%d %d\n%d\n", channels == 1 ? '5' : '6', raster.width, raster.height,
                 sampleBytes == 2 ? 65535 : 255);
    if (std::fwrite(samples.data(), 1, samples.size(), file) != samples.size())
      return "cannot write '" + path.string() + "'";
    return "";
  });
}

}  // namespace lmxtool
