// Fixed-ratio polyphase resampler: parameter checks, state layout and the run loop.
#include "dsp/resampler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <numeric>

#include "dsp/resampler_bank.h"

namespace lmx::dsp {

namespace {

constexpr uint32_t kStateMagic = 0x52504F4Cu;
constexpr int32_t kMinLength = 8;
constexpr int32_t kMaxLength = 512;
// Input samples converted to float at a time by the fast path (on the stack): a
// whole pass of the audio converter (a block and the filter's reach), and room on
// each side for the samples a lanes group reads beyond its outputs' windows.
constexpr int32_t kFloatSpan = kConverterPresets.block + 2 * kConverterPresets.history;
constexpr int32_t kMaxReach = kResamplerFloatPad;  // a layout reaching further is not worth it (resampler_bank.cpp)

// The state's header: the bank is the shared one (resampler_bank.h), held through
// a reference the state owns until released.
struct ResamplerState {
  uint32_t magic;
  int32_t taps;    // filter length
  int32_t phases;  // L = outRate / g
  int32_t step;    // M = inRate / g: input advance per output, in 1/L samples
  std::shared_ptr<const ResamplerBank>* bank;
  lmx::InnerProductFn innerProduct;
  lmx::PolyphaseBlockFn polyphaseBlock;  // null: the double path
  lmx::PolyphaseLanesFn polyphaseLanes;  // null: polyphaseBlock
  lmx::Pcm16ToFloatFn pcm16ToFloat;
  lmx::FloatToPcm16Fn floatToPcm16;
};

struct Ratio {
  int32_t phases;
  int32_t step;
};

VkpStatus CheckParameters(int32_t inRate, int32_t outRate, int32_t length, Ratio* ratio) {
  if (inRate < 1 || outRate < 1) return kVkpBadRate;
  if (length < kMinLength || length > kMaxLength || length % 8 != 0) return kVkpBadLength;
  int32_t g = std::gcd(inRate, outRate);
  ratio->phases = outRate / g;
  ratio->step = inRate / g;
  if (ratio->phases > kResamplerMaxPhases) return kVkpTooManyPhases;
  if (static_cast<int64_t>(inRate) > static_cast<int64_t>(length / 2) * outRate) return kVkpBadRatio;
  return kVkpOk;
}

ResamplerState* Checked(uint8_t* state) {
  auto* header = reinterpret_cast<ResamplerState*>(state);
  return (header && header->magic == kStateMagic) ? header : nullptr;
}

int16_t RoundAndSaturate(double y) {
  if (y >= 32767.0) return 32767;
  if (y <= -32768.0) return -32768;
  return static_cast<int16_t>(std::lround(y));
}

}  // namespace

VkpStatus vkpsResamplePolyphaseFixedGetSize_16s(int32_t inRate, int32_t outRate, int32_t length, int32_t* stateSize,
                                                int32_t* filterLen, int32_t* filterNum, VkpAlgHint) {
  if (!stateSize || !filterLen || !filterNum) return kVkpNullPointer;
  Ratio ratio{};
  VkpStatus sts = CheckParameters(inRate, outRate, length, &ratio);
  if (sts != kVkpOk) return sts;
  *stateSize = static_cast<int32_t>(sizeof(ResamplerState));
  *filterLen = length;
  *filterNum = ratio.phases;
  return kVkpOk;
}

VkpStatus vkpsResamplePolyphaseFixedInit_16s(int32_t inRate, int32_t outRate, int32_t length, float rollf, float alpha,
                                             uint8_t* state, VkpAlgHint) {
  if (!state) return kVkpNullPointer;
  Ratio ratio{};
  VkpStatus sts = CheckParameters(inRate, outRate, length, &ratio);
  if (sts != kVkpOk) return sts;
  if (!(rollf > 0.0f && rollf <= 1.0f) || !(alpha >= 0.0f && alpha <= 50.0f)) return kVkpBadArgument;

  auto bank = SharedBank({ratio.phases, ratio.step, length, rollf, alpha});
  auto* holder = bank ? new (std::nothrow) std::shared_ptr<const ResamplerBank>(std::move(bank)) : nullptr;
  if (!holder) return kVkpNoMemory;
  const lmx::AudioKernelTable& kernels = lmx::ActiveAudioKernels();
  const bool lanes = kernels.polyphaseLanes && (*holder)->Lanes();
  const ResamplerState header{kStateMagic,
                              length,
                              ratio.phases,
                              ratio.step,
                              holder,
                              kernels.innerProduct,
                              kernels.polyphaseBlock,
                              lanes ? kernels.polyphaseLanes : nullptr,
                              kernels.pcm16ToFloat,
                              kernels.floatToPcm16};
  std::memcpy(state, &header, sizeof(header));
  return kVkpOk;
}

void vkpsResamplePolyphaseFixedRelease_16s(uint8_t* state) {
  ResamplerState* header = Checked(state);
  if (!header) return;
  delete header->bank;
  std::memset(state, 0, sizeof(ResamplerState));
}

namespace {

// A run's input: 16-bit samples, or their float images (s * 2^-15) with
// kResamplerFloatPad finite samples on each side of the windows.
struct RunInput {
  const int16_t* pcm;
  const float* floats;
};

// Scales, rounds and saturates the double reference's sum.
void RunReference(const ResamplerState& header, const ResamplerBank& bank, const int16_t* in, int64_t position,
                  int64_t endPosition, double gain, int16_t* out, int32_t* produced) {
  const double* taps64 = bank.Taps();
  const int64_t phases = header.phases;
  const int32_t half = header.taps / 2;
  for (; position < endPosition; position += header.step) {
    const int64_t n = position / phases;
    const int64_t p = position % phases;
    out[(*produced)++] =
        RoundAndSaturate(header.innerProduct(taps64 + p * header.taps, in + (n - half), header.taps) * gain);
  }
}

// The bank's outputs-in-lanes layout where the variant has that body and the
// layout's reach is within the pads; null: the per-output block.
const lmx::LanesPolyphaseBank* UsableLanes(const ResamplerState& header, const ResamplerBank& bank) {
  const lmx::LanesPolyphaseBank* lanes = header.polyphaseLanes ? bank.Lanes() : nullptr;
  return lanes && lanes->reach <= kMaxReach ? lanes : nullptr;
}

// The fast body over float samples at x, `position` counted from x[0].
void RunFast(const ResamplerState& header, const ResamplerBank& bank, const float* x, int64_t position, int32_t outputs,
             float gain, int16_t* out) {
  if (const lmx::LanesPolyphaseBank* lanes = UsableLanes(header, bank)) {
    header.polyphaseLanes(*lanes, x, position, outputs, gain, out);
  } else {
    header.polyphaseBlock(bank.Floats(), x, position, outputs, gain, out);
  }
}

VkpStatus Run(RunInput in, int32_t count, int16_t* out, float norm, double* time, int32_t* outLen, uint8_t* state) {
  if (!(in.pcm || in.floats) || !out || !time || !outLen || !state) return kVkpNullPointer;
  const ResamplerState* header = Checked(state);
  if (!header) return kVkpBadState;
  const double start = *time;
  if (!(start >= 0.0 && start < 1e12)) return kVkpBadArgument;
  // A negative count sets a limit the start time has already passed: nothing is
  // due. The converter asks for that whenever a chunk is shorter than the
  // look-ahead it holds back (the first chunk of a stream below 32 frames, or a
  // frame or two after a pass that stopped past its limit); refusing it would
  // fail those calls although the stream is fine.
  if (count < 0) count = 0;

  // Locals for the loop; the state is read once and time written back once.
  const int32_t taps = header->taps;
  const int64_t phases = header->phases;
  const int64_t step = header->step;
  const int32_t half = taps / 2;

  // Exact position in 1/L input samples, recovered from the double time.
  int64_t whole = static_cast<int64_t>(std::floor(start));
  int64_t phase = std::llround((start - static_cast<double>(whole)) * static_cast<double>(phases));
  if (phase == phases) {
    ++whole;
    phase = 0;
  }
  const int64_t startPosition = whole * phases + phase;
  const int64_t endPosition = startPosition + static_cast<int64_t>(count) * phases;

  int32_t produced = 0;
  int64_t position = startPosition;
  const ResamplerBank& bank = **header->bank;
  // Float samples are s * 2^-15 (exact both ways); the fast body's gain is scaled
  // back by 2^15, also exact.
  const float gain = norm * 32768.0f;
  if (header->polyphaseBlock && in.floats) {
    // Read in place.
    const int64_t outputs = endPosition > position ? (endPosition - position + step - 1) / step : 0;
    RunFast(*header, bank, in.floats, position, static_cast<int32_t>(outputs), gain, out);
    produced = static_cast<int32_t>(outputs);
    position += outputs * step;
  } else {
    // Spans of the input in the other form, each holding the windows of a run of
    // outputs; float spans lie between zeros as far as the lanes body reads.
    const lmx::LanesPolyphaseBank* lanes = UsableLanes(*header, bank);
    const int32_t reach = lanes ? lanes->reach : 0;
    alignas(64) float floats[kFloatSpan + 2 * kMaxReach];
    alignas(64) int16_t pcm[kFloatSpan];
    float* span = floats + reach;
    while (position < endPosition) {
      // Outputs whose window ends inside the span: n + half <= first - half + kFloatSpan.
      const int64_t first = position / phases;
      const int64_t limit = std::min(endPosition, (first + kFloatSpan - taps + 1) * phases);
      const int64_t outputs = (limit - position + step - 1) / step;
      const int64_t last = (position + (outputs - 1) * step) / phases;
      const int32_t valid = static_cast<int32_t>(last - first + taps);
      const int64_t local = position - (first - half) * phases;  // position counted from the span's start
      if (header->polyphaseBlock) {
        header->pcm16ToFloat(in.pcm + (first - half), span, valid);
        std::memset(floats, 0, static_cast<size_t>(reach) * sizeof(float));
        std::memset(span + valid, 0, static_cast<size_t>(reach) * sizeof(float));
        RunFast(*header, bank, span, local, static_cast<int32_t>(outputs), gain, out + produced);
        produced += static_cast<int32_t>(outputs);
      } else if (in.pcm) {
        RunReference(*header, bank, in.pcm, position, limit, norm, out, &produced);
      } else {
        header->floatToPcm16(in.floats + (first - half), pcm, valid);  // exact: the samples are 16-bit values
        RunReference(*header, bank, pcm, local, local + (limit - position), norm, out, &produced);
      }
      position += outputs * step;
    }
  }
  *time = static_cast<double>(position / phases) + static_cast<double>(position % phases) / static_cast<double>(phases);
  *outLen = produced;
  return kVkpOk;
}

}  // namespace

VkpStatus vkpsResamplePolyphaseFixed_16s(const int16_t* in, int32_t count, int16_t* out, float norm, double* time,
                                         int32_t* outLen, uint8_t* state) {
  return Run({in, nullptr}, count, out, norm, time, outLen, state);
}

VkpStatus vkpsResamplePolyphaseFixed_32f(const float* in, int32_t count, int16_t* out, float norm, double* time,
                                         int32_t* outLen, uint8_t* state) {
  return Run({nullptr, in}, count, out, norm, time, outLen, state);
}

}  // namespace lmx::dsp
