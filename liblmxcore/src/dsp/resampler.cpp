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
constexpr int32_t kMaxReach = kMaxLength;  // a layout reaching further is not worth it (resampler_bank.cpp)

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
                              kernels.pcm16ToFloat};
  std::memcpy(state, &header, sizeof(header));
  return kVkpOk;
}

void vkpsResamplePolyphaseFixedRelease_16s(uint8_t* state) {
  ResamplerState* header = Checked(state);
  if (!header) return;
  delete header->bank;
  std::memset(state, 0, sizeof(ResamplerState));
}

VkpStatus vkpsResamplePolyphaseFixed_16s(const int16_t* in, int32_t count, int16_t* out, float norm, double* time,
                                         int32_t* outLen, uint8_t* state) {
  if (!in || !out || !time || !outLen || !state) return kVkpNullPointer;
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
  if (header->polyphaseBlock) {
    // Fast path: spans of the input in float (s * 2^-15, exact; the gain is scaled
    // back by 2^15, also exact), each holding the windows of a run of outputs;
    // for the lanes body, between zeros as far as its groups read.
    const lmx::FloatPolyphaseBank floatBank = bank.Floats();
    const lmx::LanesPolyphaseBank* lanes = header->polyphaseLanes ? bank.Lanes() : nullptr;
    if (lanes && lanes->reach > kMaxReach) lanes = nullptr;
    const int32_t reach = lanes ? lanes->reach : 0;
    const float gain = norm * 32768.0f;
    alignas(64) float buffer[kFloatSpan + 2 * kMaxReach];
    float* span = buffer + reach;
    while (position < endPosition) {
      // Outputs whose window ends inside the span: n + half <= first - half + kFloatSpan.
      const int64_t first = position / phases;
      const int64_t limit = std::min(endPosition, (first + kFloatSpan - taps + 1) * phases);
      const int64_t outputs = (limit - position + step - 1) / step;
      const int64_t last = (position + (outputs - 1) * step) / phases;
      const int32_t valid = static_cast<int32_t>(last - first + taps);
      header->pcm16ToFloat(in + (first - half), span, valid);
      if (lanes) {
        std::memset(buffer, 0, static_cast<size_t>(reach) * sizeof(float));
        std::memset(span + valid, 0, static_cast<size_t>(reach) * sizeof(float));
        header->polyphaseLanes(*lanes, span, position - (first - half) * phases, static_cast<int32_t>(outputs), gain,
                               out + produced);
      } else {
        header->polyphaseBlock(floatBank, span, position - (first - half) * phases, static_cast<int32_t>(outputs), gain,
                               out + produced);
      }
      produced += static_cast<int32_t>(outputs);
      position += outputs * step;
    }
  } else {
    const double* taps64 = bank.Taps();
    const lmx::InnerProductFn innerProduct = header->innerProduct;
    const double gain = norm;
    for (; position < endPosition; position += step) {
      const int64_t n = position / phases;
      const int64_t p = position % phases;
      double acc = innerProduct(taps64 + p * taps, in + (n - half), taps);
      out[produced++] = RoundAndSaturate(acc * gain);
    }
  }
  *time = static_cast<double>(position / phases) + static_cast<double>(position % phases) / static_cast<double>(phases);
  *outLen = produced;
  return kVkpOk;
}

}  // namespace lmx::dsp
