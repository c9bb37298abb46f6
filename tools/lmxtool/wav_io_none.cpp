// Builds without libsndfile: WAV files are refused with a clear message.
#include "wav_io.h"

namespace lmxtool {

bool WavSupported() { return false; }
std::string ReadWav(const std::filesystem::path& path, Sound*) {
  return "'" + path.string() + "': this lmxtool was built without WAV support (libsndfile)";
}
std::string WriteWav(const std::filesystem::path& path, const Sound&) {
  return "'" + path.string() + "': this lmxtool was built without WAV support (libsndfile)";
}

}  // namespace lmxtool
