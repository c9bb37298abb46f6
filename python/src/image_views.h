// image_views.h: NumPy arrays over acquired image planes.
//
// An acquisition is held by a lease. Every array made over its planes has the same
// base object, an empty array that owns the lease, and NumPy gives every view derived
// from those arrays that base too: the planes stay acquired, never freed, while any
// array can reach them. When the `with` block ends, the arrays handed to it are
// revoked in place: they become empty and read-only and stop pointing at the planes,
// so indexing them raises (IndexError; writing: ValueError) and nothing reads the
// planes through them; the acquisition ends as soon as no derived view is left. An
// array whose buffer was exported (memoryview, np.frombuffer) is not revoked, since
// the export may still point at the planes: it keeps the acquisition instead.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <vector>

#include "image.h"

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

// A copy of the image in `format`, rotated by `rotate` degrees.
py::object CopyToNumpy(py::object owner, int32_t format, int rotate);
// A new image in `format` holding the array(s); with adopt the image uses their
// memory directly and keeps them alive.
py::object ImageFromNumpy(py::object arrays, int32_t format, bool adopt, LMXAllocator* allocator);

void RegisterImageViews(py::module_& module);

}  // namespace lmxpy
