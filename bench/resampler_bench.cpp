// Resampler and mixing throughput.
//
// Block benchmarks: the double reference against the fast path (float, AVX2 +
// FMA) on one block of the size the audio converter runs (4096 input samples per
// pass), and the channel mix.
//
// Stream benchmarks (Stream/<in>_<out>/<implementation>): 10 s of a 997 Hz tone at
// -1 dBFS, mono 16-bit, resampled in full per iteration by our resampler (double
// reference and fast path), by the whole ConvertAudio path, and by three anchor
// libraries at two quality settings each. Counters: `outputs` (samples per
// iteration), `snr_db` (the tone fitted by least squares at its known frequency
// over the output minus half a second at each end; everything else counts as
// noise, so delay and gain do not matter) and, for 48000 -> 16000, `alias_db`
// (how far a dithered -1 dBFS 10 kHz tone's alias at 6 kHz, fitted the same way,
// lies below the input tone). Anchors emit 16-bit
// samples without dither so all are rounded alike; their set-up is outside the
// timing, as ours is.
#include <benchmark/benchmark.h>
#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "audio/audio_converter.h"
#include "image/coreaccel_baseaudio.h"
#include "cpu/cpu_features.h"
#include "dsp/audio_kernels.h"
#include "dsp/resampler.h"
#include "dsp/resampler_bank.h"
#include "lmxallocator.h"
#include "module_factories.h"

using namespace lmx::dsp;
using lmx::AudioConverter;
using lmx::BaseAudio;
using lmx::CreateAllocator;
using lmx::CreateAudioConverter;

namespace {

constexpr int32_t kHalf = 32;
constexpr int32_t kBlock = 4096;
// The resampler's fast path (single precision, fused multiply-add).
constexpr uint32_t kFast = lmx::kCpuHasAVX2 | lmx::kCpuHasFMA;
constexpr uint32_t kFast512 = kFast | lmx::kCpuHasAVX512BW;

void BM_Resample(benchmark::State& state, int32_t inRate, int32_t outRate, uint32_t features) {
  if ((lmx::DetectedCpuFeatures() & features) != features) {
    state.SkipWithError("feature not available");
    return;
  }
  int32_t size = 0, len = 0, num = 0;
  vkpsResamplePolyphaseFixedGetSize_16s(inRate, outRate, 2 * kHalf, &size, &len, &num, vkpAlgHintAccurate);
  std::vector<uint8_t> bank(size);
  {
    lmx::ScopedCpuFeatureMask mask(features);  // the set-up picks the variant
    vkpsResamplePolyphaseFixedInit_16s(inRate, outRate, 2 * kHalf, 0.95f, 9.0f, bank.data(), vkpAlgHintAccurate);
  }

  std::mt19937 rng(1);
  std::vector<int16_t> in(kBlock + 2 * kHalf);
  for (auto& s : in) s = static_cast<int16_t>(rng());
  std::vector<int16_t> out(static_cast<size_t>(kBlock) * outRate / inRate + 2);
  for (auto _ : state) {
    double time = kHalf;
    int32_t outLen = 0;
    vkpsResamplePolyphaseFixed_16s(in.data(), kBlock, out.data(), 0.98f, &time, &outLen, bank.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlock);
  vkpsResamplePolyphaseFixedRelease_16s(bank.data());
}

void BM_MixToMono(benchmark::State& state, uint32_t features) {
  if ((lmx::DetectedCpuFeatures() & features) != features) {
    state.SkipWithError("feature not available");
    return;
  }
  const int32_t channels = static_cast<int32_t>(state.range(0));
  const auto kernels = lmx::SelectAudioKernels(features);
  std::vector<int16_t> in(static_cast<size_t>(kBlock) * channels, 123), out(kBlock);
  for (auto _ : state) {
    kernels.mixToMono(in.data(), channels, out.data(), kBlock);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlock);
}

// --- Stream benchmarks -------------------------------------------------------

constexpr int32_t kSeconds = 10;
const double kAmplitude = 32767.0 * std::pow(10.0, -1.0 / 20.0);  // -1 dBFS

// A -1 dBFS tone, optionally with triangular dither of +-1 LSB (so that a residue
// far below one LSB still reaches the output as a measurable tone, not zeros).
std::vector<int16_t> Tone(double frequency, int32_t rate, bool dither = false) {
  std::vector<int16_t> samples(static_cast<size_t>(rate) * kSeconds);
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (size_t n = 0; n < samples.size(); ++n) {
    const double noise = dither ? uniform(rng) + uniform(rng) - 1.0 : 0.0;
    samples[n] =
        static_cast<int16_t>(std::lround(kAmplitude * std::sin(2.0 * std::numbers::pi * frequency * n / rate) + noise));
  }
  return samples;
}

// Middle of an output: half a second off each end (edges and filter delays).
std::pair<size_t, size_t> Steady(size_t count, int32_t rate) {
  const size_t edge = static_cast<size_t>(rate) / 2;
  return count > 2 * edge ? std::pair{edge, count - edge} : std::pair{size_t{0}, count};
}

struct ToneFit {
  double a, b, dc;  // a*cos + b*sin + dc
  size_t begin, end;
  double Amplitude() const { return std::hypot(a, b); }
};

// Least-squares fit of a tone of known `frequency` over the steady part of `out`.
ToneFit FitTone(const int16_t* out, size_t count, int32_t rate, double frequency) {
  const auto [begin, end] = Steady(count, rate);
  double m[3][4] = {};
  for (size_t n = begin; n < end; ++n) {
    const double w = 2.0 * std::numbers::pi * frequency * static_cast<double>(n) / rate;
    const double basis[3] = {std::cos(w), std::sin(w), 1.0};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) m[i][j] += basis[i] * basis[j];
      m[i][3] += basis[i] * out[n];
    }
  }
  for (int i = 0; i < 3; ++i) {  // Gauss-Jordan; the 3x3 system is well conditioned
    for (int r = 0; r < 3; ++r) {
      if (r == i) continue;
      const double f = m[r][i] / m[i][i];
      for (int c = 0; c < 4; ++c) m[r][c] -= f * m[i][c];
    }
  }
  return {m[0][3] / m[0][0], m[1][3] / m[1][1], m[2][3] / m[2][2], begin, end};
}

// Signal to everything-else ratio of a tone of `frequency`: the fitted tone is the
// signal, the residual the noise.
double SnrDb(const int16_t* out, size_t count, int32_t rate, double frequency) {
  const auto [a, b, dc, begin, end] = FitTone(out, count, rate, frequency);
  double noise = 0.0;
  for (size_t n = begin; n < end; ++n) {
    const double w = 2.0 * std::numbers::pi * frequency * static_cast<double>(n) / rate;
    const double e = out[n] - (a * std::cos(w) + b * std::sin(w) + dc);
    noise += e * e;
  }
  const double signal = (a * a + b * b) / 2.0 * static_cast<double>(end - begin);
  return 10.0 * std::log10(signal / std::max(noise, 1e-30));
}

// How far the tone folded to `alias` Hz lies below the input tone. The fit over
// several seconds reaches well below the output's rounding noise.
double RejectionDb(const int16_t* out, size_t count, int32_t rate, double alias) {
  const double amplitude = FitTone(out, count, rate, alias).Amplitude();
  return 20.0 * std::log10(kAmplitude / std::max(amplitude, 1e-12));
}

// One implementation converting a whole stream. Prepare (untimed, once) sees the
// input first; Reset (untimed) readies it for a fresh stream; Process converts
// `in` into `out` (room for every output) and returns the output count.
class StreamResampler {
 public:
  virtual ~StreamResampler() = default;
  virtual void Prepare(const std::vector<int16_t>&, int16_t*) {}
  virtual void Reset() {}
  virtual size_t Process(const std::vector<int16_t>& in, int16_t* out) = 0;
};

class OursBare final : public StreamResampler {
 public:
  OursBare(int32_t inRate, int32_t outRate, uint32_t features) {
    int32_t size = 0, len = 0, num = 0;
    vkpsResamplePolyphaseFixedGetSize_16s(inRate, outRate, 2 * kHalf, &size, &len, &num, vkpAlgHintAccurate);
    bank.resize(static_cast<size_t>(size));
    lmx::ScopedCpuFeatureMask mask(features);  // the set-up picks the variant
    vkpsResamplePolyphaseFixedInit_16s(inRate, outRate, 2 * kHalf, 0.95f, 9.0f, bank.data(), vkpAlgHintAccurate);
  }
  // The input goes between kHalf silent samples on each side.
  void Prepare(const std::vector<int16_t>& in, int16_t*) override {
    padded.assign(in.size() + 2 * kHalf + 1, 0);
    std::copy(in.begin(), in.end(), padded.begin() + kHalf);
    floats.assign(padded.size() + 2 * kResamplerFloatPad, 0.0f);
    for (size_t i = 0; i < padded.size(); ++i) floats[kResamplerFloatPad + i] = padded[i] / 32768.0f;
  }
  ~OursBare() override { vkpsResamplePolyphaseFixedRelease_16s(bank.data()); }
  size_t Process(const std::vector<int16_t>& in, int16_t* out) override {
    double time = kHalf;
    int32_t outLen = 0;
    vkpsResamplePolyphaseFixed_16s(padded.data(), static_cast<int32_t>(in.size()), out, 0.98f, &time, &outLen,
                                   bank.data());
    return static_cast<size_t>(outLen);
  }
  // One call on the samples' float images, read in place, as the audio converter runs it.
  void Run(int32_t count, int16_t* out, double* time, int32_t* outLen) {
    vkpsResamplePolyphaseFixed_32f(floats.data() + kResamplerFloatPad, count, out, 0.98f, time, outLen, bank.data());
  }

 private:
  std::vector<uint8_t> bank;
  std::vector<int16_t> padded;
  std::vector<float> floats;
};

// Plain 16-bit audio object: the source adopts the input, destinations own theirs.
class PcmAudio final : public BaseAudio {
 public:
  PcmAudio(const AudioInfo& description, const int16_t* adopt, int32_t count)
      : samples(adopt ? 0 : static_cast<size_t>(std::max(description.bufferSize, 0))), adopted(adopt), dataSize(count) {
    info = description;
  }
  Norvik::Lumetra::Status AcquireAccess(Access, AudioFormat format, int32_t, AudioData* data) override {
    if (format && format != AUDIO_FORMAT_PCM) return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED;
    *data = {AUDIO_FORMAT_PCM, dataSize,
             adopted ? reinterpret_cast<uint8_t*>(const_cast<int16_t*>(adopted))
                     : reinterpret_cast<uint8_t*>(samples.data())};
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  Norvik::Lumetra::Status ReleaseAccess(AudioData* data) override {
    if (!adopted) dataSize = data->dataSize;
    *data = AudioData{};
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

  std::vector<int16_t> samples;
  const int16_t* adopted;
  int32_t dataSize;
};

class PcmAllocator final : public Norvik::Lumetra::BaseImpl<LMXAllocator> {
 public:
  Norvik::Lumetra::Status Reserved2() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Norvik::Lumetra::Status Reserved3() override { return Norvik::Lumetra::LMX_STATUS_NO_ERROR; }
  Norvik::Lumetra::Status Reserved4() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status Reserved5() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status Reserved6() override { return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED; }
  Norvik::Lumetra::Status CreateImage(Norvik::Lumetra::Image::ImageInfo*, int32_t, Norvik::Lumetra::Image::ImageData*,
                                      Norvik::Lumetra::Image**) override {
    return Norvik::Lumetra::LMX_STATUS_FEATURE_UNSUPPORTED;
  }
  Norvik::Lumetra::Status CreateAudio(LMXAudio::AudioInfo* info, int32_t, LMXAudio::AudioData*,
                                      LMXAudio** audio) override {
    *audio = new PcmAudio(*info, nullptr, 0);
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

// The whole converter path, fed the stream as consecutive 10 s chunks (the tone
// holds a whole number of cycles, so the chunks join seamlessly). The first chunk,
// which sets the converter up, is converted untimed.
class OursConvertAudio final : public StreamResampler {
 public:
  OursConvertAudio(int32_t inRate, int32_t outRate) : inRate(inRate), outRate(outRate), converter(&allocator) {}
  ~OursConvertAudio() override {
    if (source) source->Release();
  }
  void Prepare(const std::vector<int16_t>& in, int16_t* scratch) override {
    const LMXAudio::AudioInfo info{
        static_cast<int32_t>(in.size()), LMXAudio::AUDIO_FORMAT_PCM, inRate, 1, 0, {0, 0, 0}};
    source = new PcmAudio(info, in.data(), static_cast<int32_t>(in.size()));
    Convert(scratch);
  }
  size_t Process(const std::vector<int16_t>&, int16_t* out) override { return Convert(out); }

 private:
  size_t Convert(int16_t* out) {
    const LMXAudio::AudioInfo dstInfo{0, LMXAudio::AUDIO_FORMAT_PCM, outRate, 1, 0, {0, 0, 0}};
    LMXAudio* dst = nullptr;
    if (converter.ConvertAudio(source, dstInfo, dst) < 0 || !dst) return 0;
    auto* pcm = static_cast<PcmAudio*>(dst);
    std::copy(pcm->samples.begin(), pcm->samples.begin() + pcm->dataSize, out);
    const size_t count = static_cast<size_t>(pcm->dataSize);
    dst->Release();
    return count;
  }

  int32_t inRate, outRate;
  PcmAllocator allocator;
  AudioConverter converter;
  PcmAudio* source = nullptr;
};

class Speex final : public StreamResampler {
 public:
  Speex(int32_t inRate, int32_t outRate, int quality) {
    int err = 0;
    st = speex_resampler_init(1, static_cast<spx_uint32_t>(inRate), static_cast<spx_uint32_t>(outRate), quality, &err);
  }
  ~Speex() override { speex_resampler_destroy(st); }
  void Reset() override { speex_resampler_reset_mem(st); }
  size_t Process(const std::vector<int16_t>& in, int16_t* out) override {
    size_t used = 0, made = 0;
    while (used < in.size()) {
      spx_uint32_t inLen = static_cast<spx_uint32_t>(in.size() - used), outLen = 1u << 20;
      speex_resampler_process_int(st, 0, in.data() + used, &inLen, out + made, &outLen);
      if (inLen == 0 && outLen == 0) break;
      used += inLen;
      made += outLen;
    }
    return made;
  }

 private:
  SpeexResamplerState* st = nullptr;
};

class Soxr final : public StreamResampler {
 public:
  Soxr(int32_t inRate, int32_t outRate, unsigned long recipe) {
    soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    io.flags |= SOXR_NO_DITHER;
    const soxr_quality_spec_t quality = soxr_quality_spec(recipe, 0);
    soxr_error_t err = nullptr;
    s = soxr_create(inRate, outRate, 1, &err, &io, &quality, nullptr);
  }
  ~Soxr() override { soxr_delete(s); }
  void Reset() override { soxr_clear(s); }
  size_t Process(const std::vector<int16_t>& in, int16_t* out) override {
    size_t used = 0, made = 0;
    soxr_process(s, in.data(), in.size(), &used, out, 1u << 22, &made);
    for (size_t more = 1; more;) {  // flush the tail
      soxr_process(s, nullptr, 0, nullptr, out + made, 1u << 16, &more);
      made += more;
    }
    return made;
  }

 private:
  soxr_t s = nullptr;
};

class SampleRate final : public StreamResampler {
 public:
  SampleRate(int32_t inRate, int32_t outRate, int converter) : ratio(static_cast<double>(outRate) / inRate) {
    int err = 0;
    st = src_new(converter, 1, &err);
  }
  ~SampleRate() override { src_delete(st); }
  void Reset() override { src_reset(st); }
  // The 16-bit conversions on each side belong to this library's 16-bit path.
  size_t Process(const std::vector<int16_t>& in, int16_t* out) override {
    const size_t room = static_cast<size_t>(static_cast<double>(in.size()) * ratio) + 4096;
    floatIn.resize(in.size());
    floatOut.resize(room);
    src_short_to_float_array(in.data(), floatIn.data(), static_cast<int>(in.size()));
    SRC_DATA data{};
    data.data_in = floatIn.data();
    data.data_out = floatOut.data();
    data.input_frames = static_cast<long>(in.size());
    data.output_frames = static_cast<long>(room);
    data.end_of_input = 1;
    data.src_ratio = ratio;
    long made = 0;
    for (;;) {
      if (src_process(st, &data) != 0) break;
      made += data.output_frames_gen;
      if (data.output_frames_gen == 0 && data.input_frames_used == data.input_frames) break;
      data.data_in += data.input_frames_used;
      data.input_frames -= data.input_frames_used;
      data.data_out += data.output_frames_gen;
      data.output_frames -= data.output_frames_gen;
    }
    src_float_to_short_array(floatOut.data(), out, static_cast<int>(made));
    return static_cast<size_t>(made);
  }

 private:
  SRC_STATE* st = nullptr;
  double ratio;
  std::vector<float> floatIn, floatOut;
};

using Factory = std::function<std::unique_ptr<StreamResampler>(int32_t inRate, int32_t outRate)>;

void BM_Stream(benchmark::State& state, int32_t inRate, int32_t outRate, uint32_t features, const Factory& make) {
  if ((lmx::DetectedCpuFeatures() & features) != features) {
    state.SkipWithError("feature not available");
    return;
  }
  const std::vector<int16_t> in = Tone(997.0, inRate);
  std::vector<int16_t> out(in.size() * static_cast<size_t>(outRate) / static_cast<size_t>(inRate) + (1u << 17));
  auto resampler = make(inRate, outRate);
  resampler->Prepare(in, out.data());
  size_t made = 0;
  for (auto _ : state) {
    state.PauseTiming();
    resampler->Reset();
    state.ResumeTiming();
    made = resampler->Process(in, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["outputs"] = static_cast<double>(made);
  state.counters["snr_db"] = SnrDb(out.data(), made, outRate, 997.0);
  if (inRate == 48000 && outRate == 16000) {
    const std::vector<int16_t> high = Tone(10000.0, inRate, true);
    auto fresh = make(inRate, outRate);
    fresh->Prepare(high, out.data());
    fresh->Reset();
    const size_t count = fresh->Process(high, out.data());
    state.counters["alias_db"] = RejectionDb(out.data(), count, outRate, 6000.0);  // 10 kHz folds to 16 - 10
  }
}

// A capture pipeline's feed: the 10 s stream in chunks of 480 frames. Ours: each
// chunk written into an audio object of the library's allocator and converted by one
// ConvertAudio call of a converter made by the module's factory; soxr HQ: the same
// chunks, one soxr_process call each. Only those calls are timed (manual time), so
// the converter's per-call work (acquisitions, history, passes, the destination
// object) is part of the figure and the chunk's preparation is not. With `floats`
// the chunks are 32-bit float: our source object holds float (rounded to 16-bit PCM
// inside the call; the converter's output is 16-bit PCM), soxr takes and gives float.
constexpr size_t kChunk = 480;

// Time inside the calls, robust to a loaded machine: each chunk's call keeps its
// fastest time over the iterations, which all convert the same stream from a fresh
// start (a call that was preempted is slower, never faster), and `inside_ms` is
// their sum, reported when the benchmark ends.
class CallTimes {
 public:
  using Clock = std::chrono::steady_clock;
  void Record(size_t chunk, Clock::duration spent) {
    if (chunk >= best.size()) best.resize(chunk + 1, Clock::duration::max());
    best[chunk] = std::min(best[chunk], spent);
    iteration += spent;
  }
  // Ends an iteration: its summed time goes to the benchmark's manual time.
  void EndIteration(benchmark::State& state) {
    state.SetIterationTime(std::chrono::duration<double>(iteration).count());
    iteration = {};
  }
  void Report(benchmark::State& state) const {
    Clock::duration total{};
    for (const auto d : best) total += d;
    state.counters["inside_ms"] = std::chrono::duration<double, std::milli>(total).count();
  }

 private:
  std::vector<Clock::duration> best;
  Clock::duration iteration{};
};

// The converter made by the export table's factory, over the library's allocator.
struct LibraryConverter {
  LibraryConverter() {
    Norvik::Lumetra::Base* object = nullptr;
    CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object);
    allocator = static_cast<LMXAllocator*>(object);
    Renew();
  }
  // A new converter, for a new stream.
  void Renew() {
    if (converter) converter->Release();
    Norvik::Lumetra::Base* converterObject = nullptr;
    // The factory's first argument is the object the converter asks for an allocator.
    CreateAudioConverter(reinterpret_cast<Norvik::Lumetra::Session*>(allocator), nullptr, nullptr, nullptr, 0,
                         &converterObject);
    converter = converterObject
                    ? static_cast<LMXAudioConversion*>(converterObject->QueryInstance(LMXAudioConversion::kIid))
                    : nullptr;
  }
  ~LibraryConverter() {
    if (converter) converter->Release();
    if (allocator) allocator->Release();
  }
  // A source object holding `count` samples of `format` (16-bit or float).
  LMXAudio* Source(const void* samples, size_t count, LMXAudio::AudioFormat format, int32_t rate) {
    LMXAudio::AudioInfo info{static_cast<int32_t>(count), format, rate, 1, 0, {0, 0, 0}};
    LMXAudio* src = nullptr;
    LMXAudio::AudioData data{};
    if (allocator->CreateAudio(&info, 0, nullptr, &src) < 0) return nullptr;
    if (src->AcquireAccess(LMXAudio::ACCESS_WRITE, format, 0, &data) < 0) {
      src->Release();
      return nullptr;
    }
    std::memcpy(data.dataPtr, samples, count * LMXAudio::SampleBytes(format));
    data.dataSize = static_cast<int32_t>(count);
    src->ReleaseAccess(&data);
    return src;
  }
  LMXAllocator* allocator = nullptr;
  LMXAudioConversion* converter = nullptr;
};

void BM_Chunked(benchmark::State& state, int32_t inRate, int32_t outRate, bool soxr, bool floats) {
  using Clock = std::chrono::steady_clock;
  const std::vector<int16_t> in = Tone(997.0, inRate);
  std::vector<float> inFloat(in.size());
  for (size_t i = 0; i < in.size(); ++i) inFloat[i] = static_cast<float>(in[i]) / 32768.0f;
  std::vector<int16_t> out;
  out.reserve(in.size() * static_cast<size_t>(outRate) / static_cast<size_t>(inRate) + (1u << 16));
  LibraryConverter library;
  const auto type = floats ? SOXR_FLOAT32_I : SOXR_INT16_I;
  soxr_io_spec_t io = soxr_io_spec(type, type);
  io.flags |= SOXR_NO_DITHER;
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  soxr_t sox = soxr ? soxr_create(inRate, outRate, 1, nullptr, &io, &quality, nullptr) : nullptr;
  if (!library.allocator || !library.converter || (soxr && !sox)) return state.SkipWithError("set-up failed");
  const size_t room = kChunk * static_cast<size_t>(outRate) / static_cast<size_t>(inRate) + 64;
  std::vector<int16_t> chunkOut(room);
  std::vector<float> chunkOutFloat(room);
  const auto format = floats ? LMXAudio::AUDIO_FORMAT_IEEE_FLOAT : LMXAudio::AUDIO_FORMAT_PCM;
  const LMXAudio::AudioInfo dstInfo{0, LMXAudio::AUDIO_FORMAT_PCM, outRate, 1, 0, {0, 0, 0}};
  bool failed = false;
  CallTimes times;
  for (auto _ : state) {
    // Every iteration is a new stream (set up untimed), so each chunk's call does
    // the same work in every iteration.
    out.clear();
    if (soxr) {
      soxr_delete(sox);
      sox = soxr_create(inRate, outRate, 1, nullptr, &io, &quality, nullptr);
    } else {
      library.Renew();
    }
    if (!sox && !library.converter) break;
    for (size_t at = 0; at + kChunk <= in.size(); at += kChunk) {
      if (soxr) {
        size_t made = 0;
        const auto begin = Clock::now();
        if (floats) {
          soxr_process(sox, inFloat.data() + at, kChunk, nullptr, chunkOutFloat.data(), room, &made);
        } else {
          soxr_process(sox, in.data() + at, kChunk, nullptr, chunkOut.data(), room, &made);
        }
        times.Record(at / kChunk, Clock::now() - begin);
        for (size_t i = 0; floats && i < made; ++i)
          chunkOut[i] = static_cast<int16_t>(std::lround(std::clamp(chunkOutFloat[i] * 32768.0f, -32768.0f, 32767.0f)));
        out.insert(out.end(), chunkOut.begin(), chunkOut.begin() + static_cast<ptrdiff_t>(made));
        continue;
      }
      LMXAudio* src = floats ? library.Source(inFloat.data() + at, kChunk, format, inRate)
                             : library.Source(in.data() + at, kChunk, format, inRate);
      failed |= !src;
      if (failed) break;
      LMXAudio* dst = nullptr;
      const auto begin = Clock::now();
      failed |= library.converter->ConvertAudio(src, dstInfo, dst) < 0;
      times.Record(at / kChunk, Clock::now() - begin);
      src->Release();
      LMXAudio::AudioData data{};
      if (dst && dst->AcquireAccess(LMXAudio::ACCESS_READ, LMXAudio::AUDIO_FORMAT_PCM, 0, &data) >= 0) {
        const auto* samples = reinterpret_cast<const int16_t*>(data.dataPtr);
        out.insert(out.end(), samples, samples + data.dataSize);
        dst->ReleaseAccess(&data);
      }
      if (dst) dst->Release();
    }
    times.EndIteration(state);
  }
  if (failed) state.SkipWithError("conversion refused");
  times.Report(state);
  state.counters["outputs"] = static_cast<double>(out.size());
  state.counters["snr_db"] = SnrDb(out.data(), out.size(), outRate, 997.0);
  if (sox) soxr_delete(sox);
}

// The resampler alone over the same 480-frame chunks (the padded stream's float
// images in place, as the converter holds them; one call per chunk, the active
// variant): what ConvertAudio's per-call work is measured against.
void BM_ChunkedKernel(benchmark::State& state, int32_t inRate, int32_t outRate) {
  using Clock = std::chrono::steady_clock;
  const std::vector<int16_t> in = Tone(997.0, inRate);
  OursBare bare(inRate, outRate, lmx::kCpuAllFeatures);
  std::vector<int16_t> out(in.size() * static_cast<size_t>(outRate) / static_cast<size_t>(inRate) + 64);
  bare.Prepare(in, nullptr);
  CallTimes times;
  for (auto _ : state) {
    double time = kHalf;
    int32_t produced = 0;
    for (size_t at = 0; at + kChunk <= in.size() - kHalf; at += kChunk) {
      int32_t outLen = 0;
      const int32_t count = static_cast<int32_t>(kHalf + at + kChunk) - static_cast<int32_t>(time);
      const auto begin = Clock::now();
      bare.Run(count, out.data() + produced, &time, &outLen);
      times.Record(at / kChunk, Clock::now() - begin);
      produced += outLen;
    }
    times.EndIteration(state);
    state.counters["outputs"] = produced;
  }
  times.Report(state);
}

// A host's set-up for a stream at a rate pair the process has used before: the
// factory's new converter, its first 480-frame ConvertAudio (which sets the
// resampler up) and its release. The first iteration (untimed warm-up) puts the
// pair's bank in the cache.
void BM_CreateConverter(benchmark::State& state, int32_t inRate, int32_t outRate) {
  const std::vector<int16_t> in = Tone(997.0, inRate);
  LibraryConverter library;
  if (!library.allocator || !library.converter) return state.SkipWithError("set-up failed");
  LMXAudio* src = library.Source(in.data(), kChunk, LMXAudio::AUDIO_FORMAT_PCM, inRate);
  const LMXAudio::AudioInfo dstInfo{0, LMXAudio::AUDIO_FORMAT_PCM, outRate, 1, 0, {0, 0, 0}};
  auto once = [&] {
    Norvik::Lumetra::Base* object = nullptr;
    CreateAudioConverter(reinterpret_cast<Norvik::Lumetra::Session*>(library.allocator), nullptr, nullptr, nullptr, 0,
                         &object);
    LMXAudio* dst = nullptr;
    const bool ok = object && static_cast<AudioConverter*>(object)->ConvertAudio(src, dstInfo, dst) >= 0;
    if (dst) dst->Release();
    if (object) object->Release();
    return ok;
  };
  if (!src || !once()) return state.SkipWithError("conversion refused");
  for (auto _ : state) benchmark::DoNotOptimize(once());
  src->Release();
}

// What the cache saves: designing the pair's bank.
void BM_DesignBank(benchmark::State& state, int32_t inRate, int32_t outRate) {
  const int32_t g = std::gcd(inRate, outRate);
  for (auto _ : state) benchmark::DoNotOptimize(ResamplerBank::Design({outRate / g, inRate / g, 64, 0.95f, 9.0f}));
}

bool RegisterStreams() {
  struct Impl {
    const char* name;
    uint32_t features;
    Factory make;
  };
  const std::vector<Impl> impls = {
      {"ours_scalar", 0u, [](int32_t i, int32_t o) { return std::make_unique<OursBare>(i, o, 0u); }},
      {"ours_AVX2_FMA", kFast, [](int32_t i, int32_t o) { return std::make_unique<OursBare>(i, o, kFast); }},
      {"ours_AVX512", kFast512, [](int32_t i, int32_t o) { return std::make_unique<OursBare>(i, o, kFast512); }},
      {"ConvertAudio", 0u, [](int32_t i, int32_t o) { return std::make_unique<OursConvertAudio>(i, o); }},
      {"speexdsp_q5", 0u, [](int32_t i, int32_t o) { return std::make_unique<Speex>(i, o, 5); }},
      {"speexdsp_q10", 0u, [](int32_t i, int32_t o) { return std::make_unique<Speex>(i, o, 10); }},
      {"soxr_HQ", 0u, [](int32_t i, int32_t o) { return std::make_unique<Soxr>(i, o, SOXR_HQ); }},
      {"soxr_VHQ", 0u, [](int32_t i, int32_t o) { return std::make_unique<Soxr>(i, o, SOXR_VHQ); }},
      {"libsamplerate_best", 0u,
       [](int32_t i, int32_t o) { return std::make_unique<SampleRate>(i, o, SRC_SINC_BEST_QUALITY); }},
      {"libsamplerate_fastest", 0u,
       [](int32_t i, int32_t o) { return std::make_unique<SampleRate>(i, o, SRC_SINC_FASTEST); }},
  };
  const std::pair<int32_t, int32_t> pairs[] = {{48000, 16000}, {44100, 48000}, {16000, 48000}};
  const std::pair<int32_t, int32_t> chunkedPairs[] = {
      {48000, 16000}, {44100, 48000}, {16000, 48000}, {48000, 44100}, {8000, 16000}};
  for (const auto& [inRate, outRate] : chunkedPairs) {
    const std::string pair = std::to_string(inRate) + "_" + std::to_string(outRate);
    for (const bool floats : {false, true}) {
      for (const bool soxr : {false, true}) {
        const std::string name =
            "Chunked/" + pair + "/" + (soxr ? "soxr_HQ" : "ConvertAudio") + (floats ? "_float" : "");
        benchmark::RegisterBenchmark(name.c_str(), BM_Chunked, inRate, outRate, soxr, floats)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
      }
    }
    benchmark::RegisterBenchmark(("Chunked/" + pair + "/kernel").c_str(), BM_ChunkedKernel, inRate, outRate)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("Create/" + pair + "/seen").c_str(), BM_CreateConverter, inRate, outRate)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("Create/" + pair + "/design").c_str(), BM_DesignBank, inRate, outRate)
        ->Unit(benchmark::kMicrosecond);
  }
  for (const auto& [inRate, outRate] : pairs) {
    for (const auto& impl : impls) {
      const std::string name = "Stream/" + std::to_string(inRate) + "_" + std::to_string(outRate) + "/" + impl.name;
      benchmark::RegisterBenchmark(name.c_str(), BM_Stream, inRate, outRate, impl.features, impl.make)
          ->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}

const bool kStreamsRegistered = RegisterStreams();

}  // namespace

BENCHMARK_CAPTURE(BM_Resample, 48000_16000_C, 48000, 16000, 0u);
BENCHMARK_CAPTURE(BM_Resample, 48000_16000_AVX2_FMA, 48000, 16000, kFast);
BENCHMARK_CAPTURE(BM_Resample, 48000_16000_AVX512, 48000, 16000, kFast512);
BENCHMARK_CAPTURE(BM_Resample, 44100_48000_C, 44100, 48000, 0u);
BENCHMARK_CAPTURE(BM_Resample, 44100_48000_AVX2_FMA, 44100, 48000, kFast);
BENCHMARK_CAPTURE(BM_Resample, 44100_48000_AVX512, 44100, 48000, kFast512);
BENCHMARK_CAPTURE(BM_Resample, 16000_48000_C, 16000, 48000, 0u);
BENCHMARK_CAPTURE(BM_Resample, 16000_48000_AVX2_FMA, 16000, 48000, kFast);
BENCHMARK_CAPTURE(BM_Resample, 16000_48000_AVX512, 16000, 48000, kFast512);
BENCHMARK_CAPTURE(BM_MixToMono, C, 0u)->Arg(2)->Arg(3)->Arg(6);
BENCHMARK_CAPTURE(BM_MixToMono, AVX2, lmx::kCpuHasAVX2)->Arg(2)->Arg(3)->Arg(6);
