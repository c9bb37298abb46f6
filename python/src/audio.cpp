// The audio converter: one-shot conversion of a whole signal and a stream form
// that keeps the resampler's state between chunks.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "errors.h"
#include "image.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

// Input frames the resampler holds back as look-ahead at the end of each chunk.
constexpr int kLookAheadFrames = 32;

Ref<LMXAudioConversion> NewConverter() {
  void* face = nullptr;
  Library& library = Library::Get();
  Check(library.Create(LMXAudioConversion::kIid, library.DefaultSession(), &face), "audio converter factory");
  return Ref<LMXAudioConversion>(static_cast<LMXAudioConversion*>(face));
}

// One chunk through a converter: mono int16 output (float when passed through).
py::array ConvertChunk(LMXAudioConversion* converter, const py::array& samples, int inRate, int outRate,
                       int channels) {
  PyAudio source = CreateAudio(Library::Get().DefaultAllocator(), samples, inRate, channels);
  LMXAudioObject::AudioInfo wanted{};
  wanted.format = LMXAudioObject::AUDIO_FORMAT_PCM;
  wanted.sampleRate = outRate;
  wanted.nchannels = 1;
  LMXAudioObject* converted = nullptr;
  Status sts;
  {
    py::gil_scoped_release released;
    sts = converter->ConvertAudio(source.audio.Get(), wanted, converted);
  }
  Ref<LMXAudioObject> result(converted);  // also released when the conversion failed
  Check(sts, "ConvertAudio");
  return AudioToNumpy(result.Get(), 0);
}

// Mono samples repeated into `channels` interleaved channels.
py::array Spread(const py::array& mono, int channels) {
  if (channels == 1) return mono;
  return py::module_::import("numpy").attr("repeat")(mono.attr("reshape")(-1, 1), channels, 1);
}

py::array Concatenate(const py::array& first, const py::array& second) {
  return py::module_::import("numpy").attr("concatenate")(py::make_tuple(first, second));
}

void CheckRates(int inRate, int outRate, int outChannels) {
  if (inRate <= 0 || outRate <= 0) Raise(LMX_STATUS_PARAM_UNSUPPORTED, "sample rates must be positive");
  if (outChannels < 1) Raise(LMX_STATUS_PARAM_UNSUPPORTED, "out_channels must be at least 1");
}

}  // namespace

// A converter serves one stream: feed() its chunks in order, flush() at the end.
class PyAudioConverter {
 public:
  py::array Convert(const py::array& samples, int inRate, int outRate, int outChannels, int channels) {
    CheckRates(inRate, outRate, outChannels);
    Ref<LMXAudioConversion> converter = NewConverter();
    py::array out = ConvertChunk(converter.Get(), samples, inRate, outRate, channels);
    if (Resamples(inRate, outRate, channels))
      out = Concatenate(out, ConvertChunk(converter.Get(), Silence(samples, channels), inRate, outRate, channels));
    return Spread(out, outChannels);
  }

  py::array Feed(const py::array& samples, int inRate, int outRate, int outChannels, int channels) {
    CheckRates(inRate, outRate, outChannels);
    if (!stream_.Get()) stream_ = NewConverter();
    last_ = {inRate, outRate, outChannels, channels};
    silence_ = Silence(samples, channels);
    return Spread(ConvertChunk(stream_.Get(), samples, inRate, outRate, channels), outChannels);
  }

  // The samples still held back by the stream, and a fresh start for the next one.
  py::array Flush() {
    py::array rest;
    if (stream_.Get() && Resamples(last_.inRate, last_.outRate, last_.channels))
      rest = Spread(ConvertChunk(stream_.Get(), silence_, last_.inRate, last_.outRate, last_.channels),
                    last_.outChannels);
    else
      rest = py::array_t<int16_t>(0);
    stream_.Reset();
    return rest;
  }

 private:
  struct Rates {
    int inRate = 0, outRate = 0, outChannels = 1, channels = 1;
  };
  // The library passes a chunk through untouched when rate and layout match.
  static bool Resamples(int inRate, int outRate, int channels) { return inRate != outRate || channels != 1; }
  // Enough silence, in the input's type, to push the held-back frames out.
  static py::array Silence(const py::array& like, int channels) {
    return py::module_::import("numpy").attr("zeros")(kLookAheadFrames * channels, like.dtype());
  }

  Ref<LMXAudioConversion> stream_;
  Rates last_;
  py::array silence_;
};

void RegisterAudio(py::module_& module) {
  py::class_<PyAudioConverter>(module, "AudioConverter",
                               "The library's audio converter: mixes to mono and resamples to 16-bit PCM.")
      .def(py::init<>())
      .def("convert", &PyAudioConverter::Convert, py::arg("samples"), py::arg("in_rate"), py::arg("out_rate"),
           py::arg("out_channels") = 1, py::arg("channels") = 1,
           "The whole signal (int16 or float32, `channels` interleaved) at out_rate, as int16,\n"
           "(frames,) or (frames, out_channels). Independent of any stream.")
      .def("feed", &PyAudioConverter::Feed, py::arg("samples"), py::arg("in_rate"), py::arg("out_rate"),
           py::arg("out_channels") = 1, py::arg("channels") = 1,
           "The next chunk of this converter's stream; returns the output ready so far (the\n"
           "resampler holds the last 32 input frames back as look-ahead).")
      .def("flush", &PyAudioConverter::Flush, "The held-back output of the stream; the next feed starts a new one.");
}

}  // namespace lmxpy
