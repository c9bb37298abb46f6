// dispatch.h: the table of row functions the plane drivers call.
//
// One entry per conversion. SelectRowKernels() builds a table for a set of CPU
// features: every entry starts as the scalar `_C` row and is upgraded in order of
// capability (SSSE3, then AVX2, then AVX-512; the last match wins); see row_simd.h.
// The active table is filled at load and on first use; ScopedCpuFeatureMask
// (cpu_features.h) refills it.
//
// A plane driver reads the table once per call, never per row:
//   const RowKernels& k = ActiveRowKernels();
//   auto row = k.bgra_to_yuy2;
//   for (...) row(src, dst, width);
#pragma once

#include <cstddef>
#include <cstdint>

namespace lmx {

using RowFn = void (*)(const uint8_t* src, uint8_t* dst, int width);
using RowAlphaFn = void (*)(const uint8_t* src, uint8_t* dst, int width, uint8_t alpha);
using TwoRowsFn = void (*)(const uint8_t* src0, const uint8_t* src1, uint8_t* dst, int width);
using ShiftRowFn = void (*)(const uint8_t* src, uint8_t* dst, int width, int shift);
using ScaleRowFn = void (*)(const uint8_t* src, uint8_t* dst, int width, float scale);
using SetRowFn = void (*)(uint8_t* dst, uint8_t value, int count);
using RotatePlaneFn = void (*)(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                               int height, int bpp);

struct RowKernels {
  // Luma-chroma.
  RowAlphaFn yuy2_to_bgra;
  RowAlphaFn yuy2_to_rgba;
  RowFn yuy2_to_bgr;
  RowFn yuy2_to_rgb;
  RowFn yuy2_to_y8;
  TwoRowsFn yuy2_to_uv;    // two YUY2 rows -> one averaged UV row
  TwoRowsFn nv12_to_yuy2;  // luma row + chroma row -> YUY2 row
  RowFn bgra_to_yuy2;
  RowFn rgba_to_yuy2;
  RowFn bgr_to_yuy2;
  RowFn rgb_to_yuy2;
  // Channel reorders (each also serves its mirror-image pair, see row.h).
  RowFn swap_rb4;         // BGRA<->RGBA
  RowFn swap_rb3;         // BGR<->RGB
  RowFn drop_alpha;       // BGRA->BGR, RGBA->RGB
  RowFn drop_alpha_swap;  // BGRA->RGB, RGBA->BGR
  RowFn add_alpha;        // BGR->BGRA, RGB->RGBA
  RowFn add_alpha_swap;   // BGR->RGBA, RGB->BGRA
  // Grey.
  RowFn bgra_to_y8;
  RowFn rgba_to_y8;
  RowFn bgr_to_y8;
  RowFn rgb_to_y8;
  RowFn y8_to_bgr;
  RowFn y8_to_y16;
  RowFn y16_to_y8;
  RowFn y16_to_bgra;
  // Depth.
  ShiftRowFn depth_shift;
  ScaleRowFn depth_to_float;
  ScaleRowFn float_to_depth;
  // Geometry.
  RowFn copy;
  SetRowFn set;
  RowFn mirror1;
  RowFn mirror2;
  RowFn mirror3;
  RowFn mirror4;
  RowFn mirror8;
  RowFn mirror_yuy2;
  RotatePlaneFn rotate90;
  RotatePlaneFn rotate270;
};

// The table for a feature set (kCpu* bits of cpu_features.h). Pure.
RowKernels SelectRowKernels(uint32_t cpu_features);

// The active table, filled from CpuFeatures() on first use.
const RowKernels& ActiveRowKernels();

}  // namespace lmx
