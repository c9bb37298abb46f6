// coreaccel_baseimage_route.h: the routing of one image buffer's conversion into another.
//
// ConvertImageBuffer is the body of the image object's system-buffer copy: given
// two buffers of the same image (descriptions with format keys, plane pointers
// and pitches), it either runs one pixel kernel from source to destination or
// names the intermediate format through which the conversion has to go. The
// image object keeps what is not computation: locking, the memory provider
// (reached through ConversionHandOff) and where the depth scale is stored
// (reached through DepthScaleSource).
//
// Routing, by the keys' rotation bits (kRotationMask) and pixel formats:
//   - Neither rotated, same format: the same planes succeed untouched, others
//     are copied plane by plane.
//   - Neither rotated, formats differ: a direct kernel from the conversion
//     table, or the table's intermediate format stored at *interm and
//     LMX_STATUS_PARAM_UNSUPPORTED.
//   - One rotated, same format: each plane rotated (clockwise by the destination
//     angle minus the source angle; angles 0, 90, 180 and 270 only). Planes are
//     rotated as the plane layout gives them: NV12's chroma plane is rotated as a
//     plane of 1-byte pixels, so a rotated NV12 buffer is reversible but its
//     chroma bytes are not in NV12 order.
//   - One rotated with another format, or both rotated: the destination's plain
//     format is stored at *interm and LMX_STATUS_PARAM_UNSUPPORTED returned.
#pragma once

#include <cstdint>

#include "lmximage.h"
#include "lmxstatus.h"

namespace lmx {

using Norvik::Lumetra::Status;

// Where the image keeps its depth scale: depth value = native value * scale
// (for example 0.125 when the native unit is an eighth of a depth unit).
class DepthScaleSource {
 public:
  // Writes the image's depth scale; a negative status when it has none.
  virtual Status GetDepthScale(float* scale) = 0;

  // The shift between depth and native depth: the scale must be a power of two
  // within two per cent, scale ~= 2^-shift (1.0 -> 0, 0.125 -> 3, 4.0 -> -2).
  // Fails with the status of GetDepthScale, or LMX_STATUS_PARAM_UNSUPPORTED
  // ("failed on mant > 0.98 && mant <= 1.02") for any other scale.
  Status GetDepthShift(int* shift);

 protected:
  ~DepthScaleSource() = default;
};

// A depth scale held by value, or none (GetDepthScale answers
// LMX_STATUS_FEATURE_UNSUPPORTED).
class FixedDepthScale final : public DepthScaleSource {
 public:
  FixedDepthScale() = default;
  explicit FixedDepthScale(float scale) : scale_(scale), has_scale_(true) {}
  Status GetDepthScale(float* scale) override;

 private:
  float scale_ = 1.0f;
  bool has_scale_ = false;
};

// A host's memory provider, offered each conversion once the sizes are checked
// and before any routing: a non-negative answer is the conversion's result, a
// negative one hands the conversion back.
class ConversionHandOff {
 public:
  virtual Status Offer(Norvik::Lumetra::Image::ImageInfo* src_info, Norvik::Lumetra::Image::ImageData* src,
                       Norvik::Lumetra::Image::ImageInfo* dst_info, Norvik::Lumetra::Image::ImageData* dst,
                       Norvik::Lumetra::Image::PixelFormat* interm) = 0;

 protected:
  ~ConversionHandOff() = default;
};

// Converts `src` (described by src_info) into `dst` (described by dst_info).
// Requires: both buffers acquired; planes laid out as ComputePlaneLayout gives
// for their keys. Guarantees: nothing is written to `dst` before every check has
// passed; *interm is written only when an intermediate format is named.
// Conversions between the depth formats use `depth`:
//   DEPTH -> DEPTH(NATIVE)   native = depth << shift (saturating at 65535)
//   DEPTH(NATIVE) -> DEPTH   depth = native >> shift (negative shifts reversed)
//   DEPTH -> DEPTH(FLOAT)    plain widening when the image has no depth scale,
//                            otherwise via DEPTH(NATIVE)
//   DEPTH(NATIVE) -> FLOAT   float = native * scale
//   DEPTH(FLOAT) -> NATIVE   native = round(float * (1 / scale)), saturated
//   DEPTH(FLOAT) -> DEPTH    depth = round(float), saturated
// Returns the kernel's status (the YUY2 to BGRA/RGBA kernels answer -8 and -6
// of their own), LMX_STATUS_PARAM_UNSUPPORTED for size mismatches, unsupported
// pairs and named intermediates, LMX_STATUS_HANDLE_INVALID for null arguments.
Status ConvertImageBuffer(const Norvik::Lumetra::Image::ImageInfo* src_info,
                          const Norvik::Lumetra::Image::ImageData* src,
                          const Norvik::Lumetra::Image::ImageInfo* dst_info,
                          const Norvik::Lumetra::Image::ImageData* dst, DepthScaleSource& depth,
                          Norvik::Lumetra::Image::PixelFormat* interm, ConversionHandOff* handOff = nullptr);

// Converts `src` into `mid` and on into `dst` in one pass, for a conversion that
// names mid's format as its intermediate and has a one-pass kernel: NV12 through
// YUY2 to BGRA, RGBA, BGR or RGB, same sizes, no rotation. Both destinations then hold
// what the two conversions would have written. Any other triple, or a kernel
// refusal, answers a negative status with nothing written: the caller converts
// in two steps, which gives the statuses of its own.
Status ConvertThroughIntermediate(const Norvik::Lumetra::Image::ImageInfo* src_info,
                                  const Norvik::Lumetra::Image::ImageData* src,
                                  const Norvik::Lumetra::Image::ImageInfo* mid_info,
                                  const Norvik::Lumetra::Image::ImageData* mid,
                                  const Norvik::Lumetra::Image::ImageInfo* dst_info,
                                  const Norvik::Lumetra::Image::ImageData* dst);

}  // namespace lmx
