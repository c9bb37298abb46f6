// demo_content.h: the demo's built-in frames and sound.
#pragma once

#include "image_io.h"
#include "wav_io.h"

namespace lmxtool {

// Eight full-intensity bars, left to right: white, yellow, cyan, green, magenta,
// red, blue, black (studio-range BT.601). width must be even.
Frame ColourBarsYUY2(int32_t width, int32_t height);
// A smooth colour gradient (red grows to the right, green downwards, blue the
// other way). width and height must be even.
Frame GradientNV12(int32_t width, int32_t height);
// Depth in millimetres: a ramp from near (left) to far (right), with a near disc
// in the upper left quarter so that rotations and mirrors can be told apart.
Frame DepthRamp(int32_t width, int32_t height, uint16_t nearMm, uint16_t farMm);
// Stereo: left tone at leftHz, right at rightHz, half amplitude.
Sound TwoTones(int32_t rate, double seconds, double leftHz, double rightHz);

}  // namespace lmxtool
