// Fixed-ratio polyphase resampler: filter design, state layout and the run loop.
#include "dsp/resampler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numeric>

namespace {

constexpr uint32_t kStateMagic = 0x52504F4Cu;
constexpr int32_t kMinLength = 8;
constexpr int32_t kMaxLength = 512;
constexpr size_t kBankAlignment = 32;
// Input samples converted to float at a time by the fast path (on the stack): a
// whole pass of the audio converter (a block and the filter's reach).
constexpr int32_t kFloatSpan = kConverterPresets.block + 2 * kConverterPresets.history;

// The state's header; the bank of phases * taps doubles follows at the next
// 32-byte boundary inside the state, then the same bank in float at the next one
// (both found from the state's address each call, so the header holds no pointer
// into itself).
struct ResamplerState {
  uint32_t magic;
  int32_t taps;    // filter length
  int32_t phases;  // L = outRate / g
  int32_t step;    // M = inRate / g: input advance per output, in 1/L samples
  lmx::InnerProductFn innerProduct;
  lmx::PolyphaseBlockFn polyphaseBlock;  // null: the double path
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

size_t BankTaps(const Ratio& ratio, int32_t length) {
  return static_cast<size_t>(ratio.phases) * static_cast<size_t>(length);
}

size_t StateSize(const Ratio& ratio, int32_t length) {
  return sizeof(ResamplerState) + 2 * kBankAlignment + BankTaps(ratio, length) * (sizeof(double) + sizeof(float));
}

uint8_t* AlignUp(uint8_t* address) {
  const uintptr_t misalignment = reinterpret_cast<uintptr_t>(address) & (kBankAlignment - 1);
  return misalignment ? address + (kBankAlignment - misalignment) : address;
}

double* Bank(uint8_t* state) { return reinterpret_cast<double*>(AlignUp(state + sizeof(ResamplerState))); }

float* FloatBank(uint8_t* state, size_t bankTaps) {
  return reinterpret_cast<float*>(AlignUp(reinterpret_cast<uint8_t*>(Bank(state) + bankTaps)));
}

void UseKernels(ResamplerState* header, const lmx::AudioKernelTable& kernels) {
  header->innerProduct = kernels.innerProduct;
  header->polyphaseBlock = kernels.polyphaseBlock;
  header->pcm16ToFloat = kernels.pcm16ToFloat;
}

// Zeroth-order modified Bessel function of the first kind, by its power series.
double BesselI0(double x) {
  double term = 1.0, sum = 1.0, quarter = x * x / 4.0;
  for (int k = 1; k < 200 && term > sum * 1e-17; ++k) {
    term *= quarter / (static_cast<double>(k) * k);
    sum += term;
  }
  return sum;
}

// Fills one phase's taps: windowed sinc of cut-off `cutoff` (cycles per input
// sample) at distances k - half - fraction, then scaled to sum to 1.
void DesignPhase(double* taps, int32_t length, double fraction, double cutoff, double alpha) {
  const double pi = 3.14159265358979323846;
  const double half = length / 2;
  const double windowNorm = BesselI0(alpha);
  double sum = 0.0;
  for (int32_t k = 0; k < length; ++k) {
    double d = k - half - fraction;
    double r = d / half;
    double window = (r * r <= 1.0) ? BesselI0(alpha * std::sqrt(1.0 - r * r)) / windowNorm : 0.0;
    double sinc = (d == 0.0) ? 2.0 * cutoff : std::sin(2.0 * pi * cutoff * d) / (pi * d);
    taps[k] = window * sinc;
    sum += taps[k];
  }
  for (int32_t k = 0; k < length; ++k) taps[k] /= sum;
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
  *stateSize = static_cast<int32_t>(StateSize(ratio, length));
  *filterLen = length;
  *filterNum = ratio.phases;
  return kVkpOk;
}

VkpStatus vkpsResamplePolyphaseFixedInit_16s(int32_t inRate, int32_t outRate, int32_t length, float rollf,
                                             float alpha, uint8_t* state, VkpAlgHint) {
  if (!state) return kVkpNullPointer;
  Ratio ratio{};
  VkpStatus sts = CheckParameters(inRate, outRate, length, &ratio);
  if (sts != kVkpOk) return sts;
  if (!(rollf > 0.0f && rollf <= 1.0f) || !(alpha >= 0.0f && alpha <= 50.0f)) return kVkpBadArgument;

  // Cut-off in cycles per input sample: rollf of the lower of the two Nyquist limits.
  const double cutoff = 0.5 * rollf * std::min(1.0, static_cast<double>(outRate) / inRate);
  double* bank = Bank(state);
  for (int32_t p = 0; p < ratio.phases; ++p)
    DesignPhase(bank + static_cast<size_t>(p) * length, length, static_cast<double>(p) / ratio.phases, cutoff,
                alpha);
  const size_t bankTaps = BankTaps(ratio, length);
  float* floatBank = FloatBank(state, bankTaps);
  for (size_t i = 0; i < bankTaps; ++i) floatBank[i] = static_cast<float>(bank[i]);

  ResamplerState header{kStateMagic, length, ratio.phases, ratio.step, nullptr, nullptr, nullptr};
  UseKernels(&header, lmx::ActiveAudioKernels());
  std::memcpy(state, &header, sizeof(header));
  return kVkpOk;
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
  if (header->polyphaseBlock) {
    // Fast path: spans of the input in float (s * 2^-15, exact; the gain is scaled
    // back by 2^15, also exact), each holding the windows of a run of outputs.
    const lmx::FloatPolyphaseBank floatBank{FloatBank(state, BankTaps({header->phases, header->step}, taps)),
                                                 taps, header->phases, header->step};
    const float gain = norm * 32768.0f;
    alignas(32) float span[kFloatSpan];
    while (position < endPosition) {
      // Outputs whose window ends inside the span: n + half <= first - half + kFloatSpan.
      const int64_t first = position / phases;
      const int64_t limit = std::min(endPosition, (first + kFloatSpan - taps + 1) * phases);
      const int64_t outputs = (limit - position + step - 1) / step;
      const int64_t last = (position + (outputs - 1) * step) / phases;
      header->pcm16ToFloat(in + (first - half), span, static_cast<int32_t>(last - first + taps));
      header->polyphaseBlock(floatBank, span, position - (first - half) * phases, static_cast<int32_t>(outputs), gain,
                             out + produced);
      produced += static_cast<int32_t>(outputs);
      position += outputs * step;
    }
  } else {
    const double* bank = Bank(state);
    const lmx::InnerProductFn innerProduct = header->innerProduct;
    const double gain = norm;
    for (; position < endPosition; position += step) {
      const int64_t n = position / phases;
      const int64_t p = position % phases;
      double acc = innerProduct(bank + p * taps, in + (n - half), taps);
      out[produced++] = RoundAndSaturate(acc * gain);
    }
  }
  *time = static_cast<double>(position / phases) +
          static_cast<double>(position % phases) / static_cast<double>(phases);
  *outLen = produced;
  return kVkpOk;
}
