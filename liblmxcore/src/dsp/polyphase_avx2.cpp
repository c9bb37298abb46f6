// AVX2 + FMA body of the resampler's polyphase block (audio_kernels.h; the code is
// in polyphase_body.h). This file alone is compiled with -mavx2 -mfma; it is called
// only on processors with both.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include "dsp/polyphase_body.h"

namespace lmx {

void PolyphaseBlock_AVX2(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                         float gain, int16_t* out) {
  RunPolyphaseBlock<false>(bank, x, position, count, gain, out);
}

}  // namespace lmx

#endif  // x86-64
