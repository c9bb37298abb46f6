// Filter design, the outputs-in-lanes layout and the shared bank cache.
#include "dsp/resampler_bank.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace lmx::dsp {

namespace {

constexpr std::align_val_t kVectorAlignment{64};
// The lanes layout: super periods of one period of at most kMaxPeriod outputs,
// or of several periods up to kMaxSuperPeriod outputs (so that a 480-frame chunk
// spans several super periods: each tap vector is loaded once for all of them,
// from the first-level cache; at 48000 -> 44100, super periods of three periods
// made every vector a load from the second level and the run 28 % slower), at
// most this many bytes, and only where it needs fewer vectors per output than
// this fraction of the taps (the per-output path's cost).
constexpr int64_t kMaxPeriod = 512;
constexpr int64_t kMaxSuperPeriod = 160;
constexpr int64_t kMaxLanesBytes = 256 << 10;
constexpr double kMaxVectorsPerTap = 1.0 / 8.0;

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

// Input sample of output o of a super period, relative to its first output's.
int64_t SampleOf(int64_t o, const FilterKey& key) { return o * key.step / key.phases; }

struct LanesShape {
  int64_t outputs = 0;  // per super period
  int64_t groups = 0;
  int64_t vectors = 0;  // per group
};

// Vectors group g of super periods of `outputs` outputs needs: its outputs'
// sample spread plus the taps.
int64_t GroupVectors(const FilterKey& key, int64_t outputs, int64_t g) {
  const int64_t lead = g * kLanes, last = std::min(outputs, lead + kLanes) - 1;
  return SampleOf(last, key) - SampleOf(lead, key) + key.length;
}

// The super period (a whole number of periods) with the fewest vectors per output,
// within the bounds above; outputs 0 when none pays.
LanesShape ChooseShape(const FilterKey& key) {
  LanesShape best;
  double bestCost = kMaxVectorsPerTap * key.length;
  for (int64_t periods = 1; periods <= kLanes; ++periods) {
    const int64_t outputs = periods * key.phases;
    if (outputs > (periods == 1 ? kMaxPeriod : kMaxSuperPeriod)) break;
    const int64_t groups = (outputs + kLanes - 1) / kLanes;
    int64_t vectors = 0;
    for (int64_t g = 0; g < groups; ++g) vectors = std::max(vectors, GroupVectors(key, outputs, g));
    const double cost = static_cast<double>(groups * vectors) / static_cast<double>(outputs);
    if (groups * vectors * kLanes * static_cast<int64_t>(sizeof(float)) <= kMaxLanesBytes && cost < bestCost) {
      bestCost = cost;
      best = {outputs, groups, vectors};
    }
  }
  return best;
}

int32_t InverseModulo(int32_t value, int32_t modulus) {
  for (int32_t inverse = 0; inverse < modulus; ++inverse)
    if (static_cast<int64_t>(value) * inverse % modulus == 1 % modulus) return inverse;
  return 0;  // not reached: value and modulus are coprime
}

}  // namespace

void ResamplerBank::FreeAligned::operator()(float* p) const { ::operator delete[](p, kVectorAlignment); }

ResamplerBank::Floats64 ResamplerBank::AllocateFloats(size_t count) {
  auto* p = static_cast<float*>(::operator new[](count * sizeof(float), kVectorAlignment, std::nothrow));
  if (p) std::memset(p, 0, count * sizeof(float));
  return Floats64(p);
}

std::shared_ptr<const ResamplerBank> ResamplerBank::Design(const FilterKey& key) try {
  auto bank = std::make_shared<ResamplerBank>();
  bank->key_ = key;
  const size_t count = static_cast<size_t>(key.phases) * static_cast<size_t>(key.length);
  bank->taps_.resize(count);
  bank->floats_ = AllocateFloats(count);
  if (!bank->floats_) return nullptr;
  // Cut-off in cycles per input sample: rolloff of the lower of the two Nyquist limits.
  const double cutoff = 0.5 * key.rolloff * std::min(1.0, static_cast<double>(key.phases) / key.step);
  for (int32_t p = 0; p < key.phases; ++p)
    DesignPhase(bank->taps_.data() + static_cast<size_t>(p) * key.length, key.length,
                static_cast<double>(p) / key.phases, cutoff, key.alpha);
  for (size_t i = 0; i < count; ++i) bank->floats_[i] = static_cast<float>(bank->taps_[i]);
  bank->bytes_ = count * (sizeof(double) + sizeof(float));
  bank->LayOutLanes();
  return bank;
} catch (const std::bad_alloc&) {
  return nullptr;
}

void ResamplerBank::LayOutLanes() {
  const LanesShape shape = ChooseShape(key_);
  if (shape.outputs == 0) return;
  const size_t floatCount = static_cast<size_t>(shape.groups * shape.vectors * kLanes);
  laneTaps_ = AllocateFloats(floatCount);
  if (!laneTaps_) return;  // the per-output path serves
  laneOffsets_.resize(static_cast<size_t>(shape.groups));
  const int32_t half = key_.length / 2;
  for (int64_t g = 0; g < shape.groups; ++g) {
    const int64_t lead = g * kLanes;
    laneOffsets_[g] = static_cast<int32_t>(SampleOf(lead, key_) - half);
    float* group = laneTaps_.get() + g * shape.vectors * kLanes;
    for (int64_t j = 0; j < kLanes && lead + j < shape.outputs; ++j) {
      const int64_t o = lead + j;
      const int64_t shift = SampleOf(o, key_) - SampleOf(lead, key_);
      const float* phase = floats_.get() + (o * key_.step % key_.phases) * key_.length;
      for (int32_t k = 0; k < key_.length; ++k) group[(shift + k) * kLanes + j] = phase[k];
    }
  }
  const int64_t spread = (static_cast<int64_t>(kLanes - 1) * key_.step + key_.phases - 1) / key_.phases;
  lanes_ = {laneTaps_.get(),
            floats_.get(),
            key_.length,
            laneOffsets_.data(),
            static_cast<int32_t>(shape.groups),
            static_cast<int32_t>(shape.vectors),
            static_cast<int32_t>(shape.outputs),
            static_cast<int32_t>(SampleOf(shape.outputs, key_)),
            key_.phases,
            key_.step,
            InverseModulo(key_.step % key_.phases, key_.phases),
            static_cast<int32_t>(spread + 2)};
  bytes_ += floatCount * sizeof(float);
}

namespace {

// Most recently used last. Destroyed, with the banks no state holds, when the
// library is unloaded.
class BankCache {
 public:
  std::shared_ptr<const ResamplerBank> Find(const FilterKey& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e->Key() == key; });
    if (it == entries_.end()) return nullptr;
    std::rotate(it, it + 1, entries_.end());
    return entries_.back();
  }
  // Adds a designed bank unless another thread added one first; returns the cached one.
  std::shared_ptr<const ResamplerBank> Add(std::shared_ptr<const ResamplerBank> bank) try {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& e : entries_)
      if (e->Key() == bank->Key()) return e;
    entries_.push_back(bank);
    size_t bytes = 0;
    for (const auto& e : entries_) bytes += e->Bytes();
    while (entries_.size() > 1 && (entries_.size() > kCachedBanks || bytes > kCachedBytes)) {
      bytes -= entries_.front()->Bytes();
      entries_.erase(entries_.begin());
    }
    return bank;
  } catch (const std::bad_alloc&) {
    return bank;  // used uncached
  }
  size_t Count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
  }

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<const ResamplerBank>> entries_;
};

BankCache& Cache() {
  static BankCache cache;
  return cache;
}

}  // namespace

std::shared_ptr<const ResamplerBank> SharedBank(const FilterKey& key) {
  if (auto bank = Cache().Find(key)) return bank;
  auto bank = ResamplerBank::Design(key);  // outside the lock: other filters stay available meanwhile
  return bank ? Cache().Add(std::move(bank)) : nullptr;
}

size_t CachedBankCount() { return Cache().Count(); }

}  // namespace lmx::dsp
