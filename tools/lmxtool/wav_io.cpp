// WAV in and out through libsndfile.
#include "wav_io.h"

#include <sndfile.h>

#include <system_error>

namespace lmxtool {

bool WavSupported() { return true; }

std::string ReadWav(const std::filesystem::path& path, Sound* sound) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.string().c_str(), SFM_READ, &info);
  if (!file) return "cannot read '" + path.string() + "': " + sf_strerror(nullptr);
  if (info.channels <= 0 || info.samplerate <= 0 || info.frames < 0 ||
      info.frames > (int64_t{1} << 31) / info.channels) {
    sf_close(file);
    return "'" + path.string() + "' has an unsupported layout or length";
  }
  sound->rate = info.samplerate;
  sound->channels = info.channels;
  sound->samples.assign(static_cast<size_t>(info.frames * info.channels), 0);
  const sf_count_t got = sf_readf_short(file, sound->samples.data(), info.frames);
  sf_close(file);
  if (got != info.frames) return "'" + path.string() + "' is truncated";
  return "";
}

std::string WriteWav(const std::filesystem::path& path, const Sound& sound) {
  std::filesystem::path partial = path;
  partial += ".partial";
  SF_INFO info{};
  info.samplerate = sound.rate;
  info.channels = sound.channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* file = sf_open(partial.string().c_str(), SFM_WRITE, &info);
  if (!file) return "cannot create '" + path.string() + "': " + sf_strerror(nullptr);
  const sf_count_t wrote = sf_writef_short(file, sound.samples.data(), sound.Frames());
  const int closed = sf_close(file);
  std::error_code code;
  if (wrote == sound.Frames() && closed == 0) {
    std::filesystem::rename(partial, path, code);
    if (!code) return "";
  }
  std::filesystem::remove(partial, code);
  return "cannot write '" + path.string() + "'";
}

}  // namespace lmxtool
