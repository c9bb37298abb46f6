// NumPy arrays over acquired image planes: the lease, the `with` contexts, copies
// out and imports.
#include "image_views.h"

#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#include <numpy/ndarraytypes.h>

#include <pybind11/eval.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "errors.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

constexpr const char* kLeaseCapsule = "lmxcore.lease";

// The Python class of the arrays a block hands out (an ndarray subclass).
py::object& PlaneArrayType() {
  static auto* type = new py::object();  // lives as long as the process
  return *type;
}

}  // namespace

// One acquisition of an image. The acquisition ends when the block ends, unless a
// plain array still reaches the planes (see Settle); the memory stays valid while
// any array can reach it, because the lease keeps the image alive and an image
// frees its planes only when it is destroyed. The library knows an acquisition by
// the address of its ImageData, so the record lives here.
class Lease {
 public:
  Lease(py::object owner, PyImage* image) : owner_(std::move(owner)), image_(image) {}
  ~Lease() { End(); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  Status Acquire(Image::Access access, int32_t format, int rotate) {
    Status sts;
    {
      py::gil_scoped_release released;  // a read may convert
      sts = image_->image->AcquireAccess(access, static_cast<Image::PixelFormat>(format), rotate, &data_);
    }
    held_ = sts >= 0;
    if (held_) image_->leases.insert(this);
    return sts;
  }
  const Image::ImageData& Data() const { return data_; }
  bool Revoked() const { return revoked_; }

  // The block ended: its arrays raise on use from now on. `object` is the lease
  // array, `arrays` the arrays the block handed out.
  void Revoke(PyObject* object, const std::vector<py::handle>& arrays) {
    revoked_ = true;
    object_ = object;
    for (py::handle array : arrays) handedOut_.push_back(py::weakref(array));
    Settle(1);
  }
  // Ends the acquisition once only the block's revoked arrays reach the planes:
  // every reference to the lease array is then theirs (views derived from them
  // refer to them, not to it), and none has lent its buffer out. `others` counts
  // references the caller holds.
  void Settle(Py_ssize_t others = 0) {
    if (!held_ || !revoked_) return;
    Py_ssize_t alive = 0;
    for (const py::weakref& array : handedOut_) {
      py::object target = array();
      if (target.is_none()) continue;
      if (reinterpret_cast<PyArrayObject_fields*>(target.ptr())->_buffer_info) return;  // lent out
      ++alive;
    }
    if (Py_REFCNT(object_) == alive + others) End();
  }

 private:
  void End() {
    if (!held_) return;
    held_ = false;
    image_->leases.erase(this);
    image_->image->ReleaseAccess(&data_);  // nothing to report to: the block is over
  }

  py::object owner_;  // keeps the image (and arrays it adopted) alive
  PyImage* image_;
  Image::ImageData data_{};
  bool held_ = false;
  bool revoked_ = false;
  PyObject* object_ = nullptr;  // the lease array, which owns this lease
  std::vector<py::weakref> handedOut_;
};

void SettleLeases(PyImage& image) {
  for (Lease* lease : std::set<Lease*>(image.leases)) lease->Settle();
}

namespace {

py::dtype DtypeOf(int32_t format) {
  switch (format & kPixelFormatMask) {
    case Image::PIXEL_FORMAT_DEPTH:
    case Image::PIXEL_FORMAT_DEPTH_NATIVE:
    case Image::PIXEL_FORMAT_Y16:
    case Image::PIXEL_FORMAT_ATTACHED_2BPP:
      return py::dtype::of<uint16_t>();
    case Image::PIXEL_FORMAT_DEPTH_FLOAT:
      return py::dtype::of<float>();
    default:
      return py::dtype::of<uint8_t>();
  }
}

// The planes of a description as the library lays them out (rotation included).
std::vector<PlaneShape> PlaneShapes(const Image::ImageInfo& info) {
  static auto* service = [] {
    // Any image answers the layout query for any description; keep one for it.
    LMXAllocator* allocator = Library::Get().DefaultAllocator();
    Image::ImageInfo probe{1, 1, Image::PIXEL_FORMAT_Y8, 0};
    Image* image = nullptr;
    Check(allocator->CreateImage(&probe, 0, nullptr, &image), "CreateImage");
    return static_cast<LMXImageService*>(image->QueryInstance(LMXImageService::kIid));
  }();
  Image::ImageInfo query = info;
  LMXImageService::PlaneInfo planes{};
  const int32_t count = service->QueryPlaneInfo(&query, 0, &planes);
  if (count <= 0)
    RaiseValue("expected a size the format can lay out, got " + std::to_string(info.width) + "x" +
               std::to_string(info.height) + " " + FormatName(info.format & kPixelFormatMask));
  std::vector<PlaneShape> shapes;
  py::dtype dtype = DtypeOf(info.format);
  for (int32_t c = 0; c < count; ++c) {
    const auto& plane = planes.plane[c];
    shapes.push_back({plane.height, plane.width, static_cast<ssize_t>(plane.bytesPerPixel) / dtype.itemsize(), dtype});
  }
  return shapes;
}

// The lease as the base object of the arrays: an empty array over the first plane
// whose own base is a capsule that deletes the lease. NumPy gives every view derived
// from a handed-out array this array as its base (it collapses base chains only
// through arrays), so it lives exactly as long as some array can reach the planes.
py::object LeaseObject(std::unique_ptr<Lease> lease) {
  uint8_t* plane = lease->Data().planes[0];
  py::capsule holder(lease.release(), kLeaseCapsule, [](PyObject* capsule) {
    delete static_cast<Lease*>(PyCapsule_GetPointer(capsule, kLeaseCapsule));
  });
  auto& api = py::detail::npy_api::get();
  const ssize_t empty[1] = {0};
  auto owner = py::reinterpret_steal<py::object>(api.PyArray_NewFromDescr_(
      api.PyArray_Type_, py::dtype::of<uint8_t>().release().ptr(), 1, empty, nullptr, plane, 0, nullptr));
  if (!owner || api.PyArray_SetBaseObject_(owner.ptr(), holder.release().ptr()) != 0) throw py::error_already_set();
  return owner;
}

PyObject* BaseOf(PyObject* array) { return PyArray_BASE(reinterpret_cast<PyArrayObject*>(array)); }

Lease& LeaseOf(const py::object& owner) {
  return *static_cast<Lease*>(PyCapsule_GetPointer(BaseOf(owner.ptr()), kLeaseCapsule));
}

// The lease behind an array of a block, found through its bases (views derived
// from a block's array refer to that array), or null for any other array.
Lease* LeaseBehind(PyObject* array) {
  PyObject* type = PlaneArrayType().ptr();
  while (array && PyObject_TypeCheck(array, reinterpret_cast<PyTypeObject*>(type))) array = BaseOf(array);
  if (!array || !PyObject_TypeCheck(array, py::detail::npy_api::get().PyArray_Type_)) return nullptr;
  PyObject* base = BaseOf(array);
  if (!base || !PyCapsule_IsValid(base, kLeaseCapsule)) return nullptr;
  return static_cast<Lease*>(PyCapsule_GetPointer(base, kLeaseCapsule));
}

// Raises for an array of a block that has ended.
void CheckLive(py::handle array) {
  if (Lease* lease = LeaseBehind(array.ptr()); lease && lease->Revoked())
    RaiseValue(
        "this array belongs to a `with` block that has ended; keep data past the block with .copy() "
        "or to_numpy()");
}

Image::ImageInfo ViewInfo(const PyImage& image, int32_t format, int rotate) {
  if (rotate % 90 != 0 || rotate < 0 || rotate >= 360)
    RaiseValue("expected rotate of 0, 90, 180 or 270, got " + std::to_string(rotate));
  return {image.info.width, image.info.height, (format ? format : image.info.format) | rotate << kRotationShift, 0};
}

py::object PlaneArray(const PlaneShape& shape, uint8_t* plane, ssize_t pitch, bool writeable, py::handle base) {
  const ssize_t item = shape.dtype.itemsize();
  const ssize_t dims[3] = {shape.height, shape.width, shape.channels};
  const ssize_t strides[3] = {pitch, shape.channels * item, item};
  auto& api = py::detail::npy_api::get();
  auto array = py::reinterpret_steal<py::object>(api.PyArray_NewFromDescr_(
      reinterpret_cast<PyTypeObject*>(PlaneArrayType().ptr()), shape.dtype.inc_ref().ptr(), shape.channels > 1 ? 3 : 2,
      dims, strides, plane, writeable ? py::detail::npy_api::NPY_ARRAY_WRITEABLE_ : 0, nullptr));
  if (!array || api.PyArray_SetBaseObject_(array.ptr(), base.inc_ref().ptr()) != 0) throw py::error_already_set();
  return array;
}

// The arrays of an acquisition: one array, or a tuple for a format with two planes.
py::object PlaneArrays(const std::vector<PlaneShape>& shapes, const Image::ImageData& data, bool writeable,
                       py::handle base) {
  if (shapes.size() == 1) return PlaneArray(shapes[0], data.planes[0], data.pitches[0], writeable, base);
  py::tuple arrays(shapes.size());
  for (size_t c = 0; c < shapes.size(); ++c)
    arrays[c] = PlaneArray(shapes[c], data.planes[c], data.pitches[c], writeable, base);
  return arrays;
}

std::vector<py::handle> ArraysOf(const py::object& arrays) {
  std::vector<py::handle> list;
  if (py::isinstance<py::tuple>(arrays))
    for (py::handle array : arrays) list.push_back(array);
  else if (arrays && !arrays.is_none())
    list.push_back(arrays);
  return list;
}

}  // namespace

ImageAccess::ImageAccess(py::object owner, Image::Access access, int32_t format, int rotate)
    : owner_(std::move(owner)), image_(&owner_.cast<PyImage&>()), access_(access), format_(format), rotate_(rotate) {
  ViewInfo(*image_, format_, rotate_);  // bad rotations are refused here, before any block
}

py::object ImageAccess::Enter() {
  if (lease_) RaiseValue("this block is already open; a block object is entered once at a time");
  if (shapes_.empty()) shapes_ = PlaneShapes(ViewInfo(*image_, format_, rotate_));
  auto lease = std::make_unique<Lease>(owner_, image_);
  Status sts = lease->Acquire(access_, format_, rotate_);
  if (sts == LMX_STATUS_PARAM_UNSUPPORTED && !image_->leases.empty()) {
    SettleLeases(*image_);  // arrays of ended blocks may have gone since
    sts = lease->Acquire(access_, format_, rotate_);
    if (sts == LMX_STATUS_PARAM_UNSUPPORTED && !image_->leases.empty())
      Raise(sts, std::string("AcquireAccess: the image is in use by ") +
                     (access_ & Image::ACCESS_WRITE ? "a reader or writer" : "a writer") +
                     ": a `with` block on it is still open, or a plain array made inside an ended block "
                     "(np.asarray, a memoryview) still reaches its planes; end the block or delete that array");
  }
  Check(sts, "AcquireAccess");
  const Image::ImageData& data = lease->Data();
  py::object base = LeaseObject(std::move(lease));
  arrays_ = PlaneArrays(shapes_, data, access_ & Image::ACCESS_WRITE, base);
  lease_ = std::move(base);
  return arrays_;
}

void ImageAccess::Exit() {
  if (lease_) LeaseOf(lease_).Revoke(lease_.ptr(), ArraysOf(arrays_));
  arrays_ = py::object();
  lease_ = py::object();
}

py::tuple ImageAccess::Pointers() const {
  if (!lease_) return py::tuple();
  const Image::ImageData& data = LeaseOf(lease_).Data();
  py::list pointers;
  for (uint8_t* plane : data.planes)
    if (plane) pointers.append(reinterpret_cast<uintptr_t>(plane));
  return py::tuple(pointers);
}

std::string ImageAccess::Repr() const {
  return std::string("<lmxcore.ImageAccess ") + (access_ & Image::ACCESS_WRITE ? "write " : "read ") +
         FormatName(format_ ? format_ : image_->info.format) + (rotate_ ? " rotated " + std::to_string(rotate_) : "") +
         " of a " + std::to_string(image_->info.width) + "x" + std::to_string(image_->info.height) + " " +
         FormatName(image_->info.format) + " image, " + (lease_ ? "open" : "not open") + ">";
}

py::object CopyToNumpy(py::object owner, int32_t format, int rotate) {
  ImageAccess access(std::move(owner), Image::ACCESS_READ, format, rotate);
  py::object arrays = access.Enter();
  py::object copy;
  if (py::isinstance<py::tuple>(arrays)) {
    py::list planes;
    for (py::handle array : arrays) planes.append(py::module_::import("numpy").attr("array")(array));
    copy = py::tuple(planes);
  } else {
    copy = py::module_::import("numpy").attr("array")(arrays);
  }
  arrays = py::object();
  access.Exit();
  return copy;
}

namespace {

// "a uint8 array of shape (480, 640, 3) for BGR": what a format's planes must be.
std::string Expected(const std::vector<PlaneShape>& shapes, int32_t format) {
  std::string text = shapes.size() == 1 ? "a " : "a tuple of ";
  for (size_t c = 0; c < shapes.size(); ++c) {
    const PlaneShape& shape = shapes[c];
    text += (c ? " and " : "") + std::string(py::str(py::handle(shape.dtype))) + " array of shape (" +
            std::to_string(shape.height) + ", " + std::to_string(shape.width) +
            (shape.channels > 1 ? ", " + std::to_string(shape.channels) : "") + ")";
  }
  return text + " for " + FormatName(format);
}

std::string Got(const std::vector<py::array>& planes) {
  std::string text;
  for (size_t c = 0; c < planes.size(); ++c)
    text += (c ? " and " : "") + DtypeName(planes[c]) + " " + ShapeText(planes[c]);
  return text;
}

}  // namespace

py::object ImageFromNumpy(py::object arrays, int32_t format, bool adopt, LMXAllocator* allocator) {
  std::vector<py::array> planes;
  const bool sequence = py::isinstance<py::tuple>(arrays) || py::isinstance<py::list>(arrays);
  if (sequence)
    for (py::handle plane : arrays)
      if (py::isinstance<py::array>(plane)) planes.push_back(py::reinterpret_borrow<py::array>(plane));
  if (!sequence && py::isinstance<py::array>(arrays)) planes.push_back(py::reinterpret_borrow<py::array>(arrays));
  if (planes.empty() || (sequence && planes.size() != py::len(arrays)))
    RaiseType("expected a NumPy array (for NV12 a (Y, UV) tuple of arrays), got " + TypeName(arrays));
  for (const py::array& plane : planes) CheckLive(plane);
  if (planes[0].ndim() < 2 || planes[0].ndim() > 3)
    RaiseValue("expected an image array of shape (H, W) or (H, W, channels), got " + ShapeText(planes[0]));
  if (planes[0].shape(0) > INT32_MAX || planes[0].shape(1) > INT32_MAX || planes[0].size() == 0)
    RaiseValue("expected an image of 1 to 2**31-1 rows and columns, got " + ShapeText(planes[0]));
  const auto height = static_cast<int32_t>(planes[0].shape(0));
  const auto width = static_cast<int32_t>(planes[0].shape(1));
  Image::ImageInfo info{width, height, format, 0};
  const std::vector<PlaneShape> shapes = PlaneShapes(info);
  const std::string expected = Expected(shapes, format);
  if (shapes.size() != planes.size()) RaiseValue("expected " + expected + ", got " + Got(planes));
  for (size_t c = 0; c < shapes.size(); ++c) {
    const PlaneShape& shape = shapes[c];
    const py::array& plane = planes[c];
    if (!plane.dtype().is(shape.dtype)) RaiseType("expected " + expected + ", got " + Got(planes));
    if (plane.ndim() != (shape.channels > 1 ? 3 : 2) || plane.shape(0) != shape.height ||
        plane.shape(1) != shape.width || (shape.channels > 1 && plane.shape(2) != shape.channels))
      RaiseValue("expected " + expected + ", got " + Got(planes));
    // Adopted planes are used in place: rows may be padded, pixels may not.
    if (adopt && !(plane.writeable() && plane.strides(1) == shape.channels * shape.dtype.itemsize() &&
                   (shape.channels == 1 || plane.strides(2) == shape.dtype.itemsize()) && plane.strides(0) > 0))
      RaiseValue(
          "adopt=True uses the array's memory: expected a writeable array with packed pixels (rows may be "
          "padded), got strides " +
          std::string(py::str(plane.attr("strides"))) + (plane.writeable() ? "" : ", read-only"));
  }

  auto image = std::make_unique<PyImage>();
  image->info = info;
  Image::ImageData data{};
  if (adopt) {
    data.format = format;
    for (size_t c = 0; c < planes.size(); ++c) {
      data.planes[c] = static_cast<uint8_t*>(planes[c].mutable_data());
      data.pitches[c] = static_cast<int32_t>(planes[c].strides(0));
    }
    image->adopted = arrays;
  }
  Image* created = nullptr;
  Check(allocator->CreateImage(&info, 0, adopt ? &data : nullptr, &created), "CreateImage");
  image->image = Ref<Image>(created);
  py::object owner = py::cast(std::move(image));
  if (!adopt) {
    ImageAccess access(owner, Image::ACCESS_WRITE, format, 0);
    py::object views = access.Enter();
    if (planes.size() == 1) {
      views.attr("__setitem__")(py::ellipsis(), planes[0]);
    } else {
      for (size_t c = 0; c < planes.size(); ++c) views[py::int_(c)].attr("__setitem__")(py::ellipsis(), planes[c]);
    }
    views = py::object();
    access.Exit();
  }
  return owner;
}

// The ndarray subclass of a block's arrays: everything that reads or writes the
// elements checks first that the block has not ended; ufuncs and NumPy functions
// then run on plain ndarray views, so their results are plain arrays.
constexpr const char* kPlaneArraySource = R"(
import numpy as np

def _plain(value):
    if isinstance(value, PlaneArray):
        _check(value)
        return np.ndarray.view(value, np.ndarray)
    if isinstance(value, (list, tuple)):
        return type(value)(_plain(item) for item in value)
    return value

class PlaneArray(np.ndarray):
    """A NumPy array over the planes of an image, handed out by a `with` block.

    It is the image's memory itself, not a copy. Once its block has ended, it and
    every view derived from it raise ValueError on any use; keep data past the block
    with .copy() or Image.to_numpy()."""

    __slots__ = ()

    def __array_ufunc__(self, ufunc, method, *inputs, **kwargs):
        out = kwargs.get("out")
        if out is not None:
            kwargs["out"] = _plain(out)
        result = getattr(ufunc, method)(*_plain(inputs), **kwargs)
        if out is not None:
            return out[0] if len(out) == 1 else out
        return result

    def __array_function__(self, func, types, args, kwargs):
        return func(*_plain(args), **{key: _plain(value) for key, value in kwargs.items()})

    def __repr__(self):
        if _revoked(self):
            return f"<PlaneArray of an ended block, shape {self.shape}, {self.dtype}>"
        return np.ndarray.__repr__(self)

    def copy(self, order="C"):
        _check(self)
        return np.array(self, order=order, copy=True)

    @property
    def flat(self):
        _check(self)
        return np.ndarray.flat.__get__(self)

    @property
    def data(self):
        _check(self)
        return np.ndarray.data.__get__(self)

def _guard(name):
    method = getattr(np.ndarray, name)
    def guarded(self, *args, **kwargs):
        _check(self)
        return method(self, *args, **kwargs)
    guarded.__name__ = name
    guarded.__doc__ = method.__doc__
    return guarded

for _name in ("__getitem__", "__setitem__", "__iter__", "__contains__", "__bool__", "__int__", "__float__",
              "__complex__", "__index__", "__str__", "__format__", "__copy__", "__deepcopy__", "__reduce__",
              "__reduce_ex__", "__array__", "all", "any", "argmax", "argmin", "argpartition", "argsort", "astype",
              "byteswap", "choose", "clip", "compress", "conj", "conjugate", "cumprod", "cumsum", "diagonal", "dot",
              "dump", "dumps", "fill", "flatten", "getfield", "item", "itemset", "max", "mean", "min", "nonzero",
              "partition", "prod", "ptp", "put", "ravel", "repeat", "reshape", "resize", "round", "searchsorted",
              "setfield", "sort", "squeeze", "std", "sum", "swapaxes", "take", "tobytes", "tofile", "tolist",
              "trace", "transpose", "var", "view"):
    setattr(PlaneArray, _name, _guard(_name))
PlaneArray.__module__ = "lmxcore"
)";

void RegisterImageViews(py::module_& module) {
  py::dict scope;
  scope["_check"] = py::cpp_function([](py::handle array) { CheckLive(array); });
  scope["_revoked"] = py::cpp_function([](py::handle array) {
    const Lease* lease = LeaseBehind(array.ptr());
    return lease && lease->Revoked();
  });
  py::exec(kPlaneArraySource, scope);
  PlaneArrayType() = scope["PlaneArray"];
  module.attr("PlaneArray") = PlaneArrayType();

  py::class_<ImageAccess>(module, "ImageAccess",
                          "The acquisition of an image in one format, for a `with` block.\n\n"
                          "Entering acquires the image and returns PlaneArrays over its planes (for NV12 a\n"
                          "(Y, UV) tuple). Leaving ends the acquisition; from then on those arrays and every\n"
                          "view derived from them raise ValueError on use.")
      .def("__enter__", [](ImageAccess& access) { return Typed<PlanesType>{access.Enter()}; })
      .def(
          "__exit__",
          [](ImageAccess& access, Typed<ExceptionType>, Typed<ExceptionValue>, Typed<TracebackType>) { access.Exit(); },
          py::arg("kind"), py::arg("value"), py::arg("traceback"))
      .def("__repr__", &ImageAccess::Repr)
      .def_property_readonly("pointers", &ImageAccess::Pointers,
                             "Addresses of the acquired planes (empty outside the block).");
}

}  // namespace lmxpy
