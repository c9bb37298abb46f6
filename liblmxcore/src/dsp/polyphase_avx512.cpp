// AVX-512 body of the resampler's polyphase block (audio_kernels.h; the code is in
// polyphase_body.h): the AVX2 body's 256-bit arithmetic, so identical outputs,
// with the 32 vector registers of AVX-512VL letting more outputs share each load.
// (512-bit lanes measured slower on a processor that splits them in two.) This
// file alone is compiled with -mavx512f -mavx512bw -mavx512vl -mfma.
#include "dsp/audio_kernels.h"

#if defined(__x86_64__) || defined(_M_X64)

#include "dsp/polyphase_body.h"

namespace lmx::dsp {

void PolyphaseBlock_AVX512(const FloatPolyphaseBank& bank, const float* x, int64_t position, int32_t count,
                           float gain, int16_t* out) {
  RunPolyphaseBlock<true>(bank, x, position, count, gain, out);
}

}  // namespace lmx::dsp

#endif  // x86-64
