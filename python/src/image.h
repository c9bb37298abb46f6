// image.h: the Python Allocator, Image and Audio objects.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>
#include <set>
#include <string>

#include "library.h"
#include "typed.h"

namespace lmxpy {

namespace py = pybind11;
using Norvik::Lumetra::Image;
using LMXAudioObject = Norvik::Lumetra::Speech::Audio;

struct PyAllocator {
  Ref<LMXAllocator> allocator;
};

class Lease;

// An image object. `adopted` keeps the arrays whose memory the image uses alive; it
// is declared first so that it outlives the image's last reference.
struct PyImage {
  py::object adopted;
  Ref<Image> image;
  Image::ImageInfo info{};
  std::set<Lease*> leases;  // acquisitions held by blocks (open, or ended with arrays out)
};

struct PyAudio {
  Ref<LMXAudioObject> audio;
};

// The channel count of int16 or float32 samples: the second dimension of a 2-D
// array (`channels`, if given, must match), else `channels` (default 1) interleaved
// in a flat one. Raises TypeError / ValueError otherwise.
int ChannelsOf(const py::array& samples, std::optional<int> channels);
// The name of a pixel format ("BGR"), rotation bits ignored.
std::string FormatName(int32_t format);
// "(480, 640)": an array's shape as NumPy prints it.
std::string ShapeText(const py::array& array);
std::string DtypeName(const py::array& array);
// Samples of an int16 or float32 array as a new audio object (copied); channels as
// ChannelsOf found them.
PyAudio CreateAudio(LMXAllocator* allocator, const py::array& samples, int rate, int channels);
// The samples of an audio object in `format` (0: as held), shaped (frames, channels).
py::array AudioToNumpy(LMXAudioObject* audio, int32_t format);

// Bindings of the image and allocator side, the access contexts and metadata.
void RegisterImages(py::module_& module);

}  // namespace lmxpy
