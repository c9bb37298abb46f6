// image_views.h: NumPy arrays over acquired image planes.
//
// An acquisition is held by a lease. The arrays a block hands out are
// lmxcore.PlaneArray, an ndarray subclass, whose base is one empty array that owns
// the lease; views derived from them are PlaneArrays too and refer to them. When
// the block ends the lease is revoked: every method, ufunc and NumPy function on
// those arrays and their derived views checks it first and raises ValueError, so
// nothing of NumPy's own array record is changed. The acquisition then ends at
// once, unless a plain array made inside the block (np.asarray, whose base is the
// lease array) or a lent buffer (memoryview) still reaches the planes: it then lasts
// until they are gone, and a conflicting acquisition settles it first. The image,
// and with it the plane memory, lives as long as any array can reach it.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <vector>

#include "image.h"
#include "typed.h"

namespace lmxpy {

// Shape and element type of one plane as an array.
struct PlaneShape {
  ssize_t height, width, channels;
  py::dtype dtype;
};

// What the block of `img.read(...)` / `img.write(...)` acquires.
class ImageAccess {
 public:
  ImageAccess(py::object owner, Image::Access access, int32_t format, int rotate);
  // Acquires and returns the planes as arrays (NV12: a (Y, UV) tuple).
  py::object Enter();
  // Revokes the arrays handed out and drops the block's hold on the acquisition.
  void Exit();
  // The plane addresses of the current acquisition (empty outside the block).
  py::tuple Pointers() const;
  std::string Repr() const;

 private:
  py::object owner_;  // the Python Image
  PyImage* image_;
  Image::Access access_;
  int32_t format_;
  int rotate_;
  std::vector<PlaneShape> shapes_;  // found on first entry
  py::object lease_;
  py::object arrays_;
};

// Ends the acquisitions of ended blocks whose plain arrays are gone.
void SettleLeases(PyImage& image);

// A copy of the image in `format`, rotated by `rotate` degrees.
py::object CopyToNumpy(py::object owner, int32_t format, int rotate);
// A new image in `format` holding the array(s); with adopt the image uses their
// memory directly and keeps them alive.
py::object ImageFromNumpy(py::object arrays, int32_t format, bool adopt, LMXAllocator* allocator);

void RegisterImageViews(py::module_& module);

}  // namespace lmxpy
