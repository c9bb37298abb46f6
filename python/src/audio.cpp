// The audio converter: one-shot conversion of a whole signal and a stream form
// that keeps the resampler's state between chunks.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>

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
py::array ConvertChunk(LMXAudioConversion* converter, const py::array& samples, int inRate, int outRate, int channels) {
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
  if (inRate <= 0 || outRate <= 0)
    RaiseValue("expected positive sample rates, got in_rate=" + std::to_string(inRate) +
               ", out_rate=" + std::to_string(outRate));
  if (outChannels < 1) RaiseValue("expected out_channels of at least 1, got " + std::to_string(outChannels));
}

// The output length of `frames` input frames: the input's duration at the output
// rate, rounded to the nearest sample (half up). The resampler itself emits every
// output whose instant its look-ahead reaches, which overshoots by up to two.
int64_t OutputFrames(int64_t frames, int inRate, int outRate) { return (frames * outRate + inRate / 2) / inRate; }

// `samples` cut or padded with silence to `length` frames.
py::array Fit(const py::array& samples, int64_t length) {
  const int64_t have = samples.shape(0);
  if (have >= length) return samples[py::slice(0, static_cast<ssize_t>(length), 1)].cast<py::array>();
  return Concatenate(samples, py::module_::import("numpy").attr("zeros")(length - have, samples.dtype()));
}

}  // namespace

// A converter serves one stream: feed() its chunks in order, flush() at the end.
class PyAudioConverter {
 public:
  py::array Convert(const py::array& samples, int inRate, int outRate, int outChannels,
                    std::optional<int> channelsGiven) {
    CheckRates(inRate, outRate, outChannels);
    const int channels = ChannelsOf(samples, channelsGiven);
    Ref<LMXAudioConversion> converter = NewConverter();
    py::array out = ConvertChunk(converter.Get(), samples, inRate, outRate, channels);
    if (Resamples(inRate, outRate, channels))
      out = Concatenate(out, ConvertChunk(converter.Get(), Silence(samples, channels), inRate, outRate, channels));
    return Spread(Fit(out, OutputFrames(samples.size() / channels, inRate, outRate)), outChannels);
  }

  py::array Feed(const py::array& samples, int inRate, int outRate, int outChannels, std::optional<int> channelsGiven) {
    CheckRates(inRate, outRate, outChannels);
    const int channels = ChannelsOf(samples, channelsGiven);
    if (stream_.Get() && (last_.inRate != inRate || last_.outRate != outRate || last_.channels != channels))
      RaiseValue("a stream keeps its rates and channels; flush() before feeding another");
    if (!stream_.Get()) {
      stream_ = NewConverter();
      fedFrames_ = emitted_ = 0;
    }
    last_ = {inRate, outRate, outChannels, channels};
    silence_ = Silence(samples, channels);
    py::array out = ConvertChunk(stream_.Get(), samples, inRate, outRate, channels);
    fedFrames_ += samples.size() / channels;
    emitted_ += out.shape(0);
    return Spread(out, outChannels);
  }

  std::string Repr() const {
    if (!stream_.Get()) return "<lmxcore.AudioConverter, no stream>";
    return "<lmxcore.AudioConverter, stream " + std::to_string(last_.inRate) + " -> " + std::to_string(last_.outRate) +
           " Hz, " + std::to_string(fedFrames_) + " frames fed>";
  }

  // The samples still held back by the stream, and a fresh start for the next one.
  // The stream's whole output has the length convert() gives the same signal.
  py::array Flush() {
    py::array rest = py::array_t<int16_t>(0);
    if (stream_.Get()) {
      if (Resamples(last_.inRate, last_.outRate, last_.channels))
        rest = ConvertChunk(stream_.Get(), silence_, last_.inRate, last_.outRate, last_.channels);
      const int64_t wanted = OutputFrames(fedFrames_, last_.inRate, last_.outRate) - emitted_;
      rest = Spread(Fit(rest, wanted < 0 ? 0 : wanted), last_.outChannels);
    }
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
  int64_t fedFrames_ = 0;  // input frames of the stream so far
  int64_t emitted_ = 0;    // output frames returned by feed()
  py::array silence_;
};

void RegisterAudio(py::module_& module) {
  py::class_<PyAudioConverter>(module, "AudioConverter",
                               "The library's audio converter: mixes to mono and resamples to 16-bit PCM.")
      .def(py::init<>())
      .def("convert", &PyAudioConverter::Convert, py::arg("samples"), py::arg("in_rate"), py::arg("out_rate"),
           py::arg("out_channels") = 1, py::arg("channels") = py::none(),
           "The whole signal at out_rate, mixed to mono, as int16 (frames,) or (frames, out_channels).\n"
           "samples: int16 or float32, (frames, channels), or flat with `channels` interleaved\n"
           "(default 1). The output has the input's duration: round(frames * out_rate / in_rate)\n"
           "frames. Independent of any stream.")
      .def("feed", &PyAudioConverter::Feed, py::arg("samples"), py::arg("in_rate"), py::arg("out_rate"),
           py::arg("out_channels") = 1, py::arg("channels") = py::none(),
           "The next chunk of this converter's stream; returns the output ready so far (the\n"
           "resampler holds the last 32 input frames back as look-ahead).")
      .def("flush", &PyAudioConverter::Flush, "The held-back output of the stream; the next feed starts a new one.")
      .def("__repr__", &PyAudioConverter::Repr);
}

}  // namespace lmxpy
