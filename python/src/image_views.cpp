// NumPy arrays over acquired image planes: the lease, the `with` contexts, copies
// out and imports.
#include "image_views.h"

#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#include <numpy/ndarraytypes.h>

#include <memory>
#include <string>
#include <vector>

#include "errors.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

// One acquisition of an image; ends it when the last array over its planes is gone.
// The library knows an acquisition by the address of its ImageData, so the record
// lives here from acquisition to release.
class Lease {
 public:
  Lease(py::object owner, Image* image) : owner_(std::move(owner)), image_(image) {}
  ~Lease() {
    if (held_) image_->ReleaseAccess(&data_);  // nothing to report to: the block is over
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  Status Acquire(Image::Access access, int32_t format, int rotate) {
    py::gil_scoped_release released;  // a read may convert
    const Status sts = image_->AcquireAccess(access, static_cast<Image::PixelFormat>(format), rotate, &data_);
    held_ = sts >= 0;
    return sts;
  }
  const Image::ImageData& Data() const { return data_; }

 private:
  py::object owner_;  // keeps the image (and arrays it adopted) alive
  Image* image_;
  Image::ImageData data_{};
  bool held_ = false;
};

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
  if (count <= 0) Raise(LMX_STATUS_PARAM_UNSUPPORTED, "no plane layout for this size and format");
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
  py::capsule holder(lease.release(), [](void* held) { delete static_cast<Lease*>(held); });
  auto& api = py::detail::npy_api::get();
  const ssize_t empty[1] = {0};
  auto owner = py::reinterpret_steal<py::object>(api.PyArray_NewFromDescr_(
      api.PyArray_Type_, py::dtype::of<uint8_t>().release().ptr(), 1, empty, nullptr, plane, 0, nullptr));
  if (!owner || api.PyArray_SetBaseObject_(owner.ptr(), holder.release().ptr()) != 0) throw py::error_already_set();
  return owner;
}

Lease& LeaseOf(const py::object& owner) {
  auto* base = py::detail::array_proxy(owner.ptr())->base;
  return *static_cast<Lease*>(py::reinterpret_borrow<py::capsule>(base).get_pointer());
}

Image::ImageInfo ViewInfo(const PyImage& image, int32_t format, int rotate) {
  if (rotate % 90 != 0 || rotate < 0 || rotate >= 360)
    Raise(LMX_STATUS_PARAM_UNSUPPORTED, "rotate must be 0, 90, 180 or 270, not " + std::to_string(rotate));
  return {image.info.width, image.info.height, (format ? format : image.info.format) | rotate << kRotationShift, 0};
}

py::object PlaneArray(const PlaneShape& shape, uint8_t* plane, ssize_t pitch, bool writeable, py::handle base) {
  const ssize_t item = shape.dtype.itemsize();
  const ssize_t dims[3] = {shape.height, shape.width, shape.channels};
  const ssize_t strides[3] = {pitch, shape.channels * item, item};
  auto& api = py::detail::npy_api::get();
  auto array = py::reinterpret_steal<py::object>(api.PyArray_NewFromDescr_(
      api.PyArray_Type_, shape.dtype.inc_ref().ptr(), shape.channels > 1 ? 3 : 2, dims, strides, plane,
      writeable ? py::detail::npy_api::NPY_ARRAY_WRITEABLE_ : 0, nullptr));
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

// Makes an array handed to a block empty, read-only and detached from its lease.
void Revoke(py::handle array) {
  alignas(64) static char revoked[64];
  auto* fields = reinterpret_cast<PyArrayObject_fields*>(array.ptr());
  if (fields->_buffer_info) return;  // its buffer was exported and may still point at the planes
  for (int i = 0; i < fields->nd; ++i) fields->dimensions[i] = 0;
  fields->data = revoked;
  fields->flags = (fields->flags & ~NPY_ARRAY_WRITEABLE) | NPY_ARRAY_C_CONTIGUOUS | NPY_ARRAY_F_CONTIGUOUS;
  PyObject* base = fields->base;
  fields->base = nullptr;
  Py_XDECREF(base);
}

void ForEachArray(const py::object& arrays, void (*action)(py::handle)) {
  if (py::isinstance<py::tuple>(arrays))
    for (py::handle array : arrays) action(array);
  else if (!arrays.is_none())
    action(arrays);
}

}  // namespace

ImageAccess::ImageAccess(py::object owner, Image::Access access, int32_t format, int rotate)
    : owner_(std::move(owner)), image_(&owner_.cast<PyImage&>()), access_(access), format_(format), rotate_(rotate) {
  ViewInfo(*image_, format_, rotate_);  // bad rotations are refused here, before any block
}

py::object ImageAccess::Enter() {
  if (lease_) Raise(LMX_STATUS_PARAM_UNSUPPORTED, "this block is already open");
  if (shapes_.empty()) shapes_ = PlaneShapes(ViewInfo(*image_, format_, rotate_));
  auto lease = std::make_unique<Lease>(owner_, image_->image.Get());
  Check(lease->Acquire(access_, format_, rotate_), "AcquireAccess");
  const Image::ImageData& data = lease->Data();
  py::object base = LeaseObject(std::move(lease));
  arrays_ = PlaneArrays(shapes_, data, access_ & Image::ACCESS_WRITE, base);
  lease_ = std::move(base);
  return arrays_;
}

void ImageAccess::Exit() {
  if (arrays_) ForEachArray(arrays_, Revoke);
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

py::object CopyToNumpy(py::object owner, int32_t format, int rotate) {
  ImageAccess access(std::move(owner), Image::ACCESS_READ, format, rotate);
  py::object arrays = access.Enter();
  py::object copy;
  if (py::isinstance<py::tuple>(arrays)) {
    py::list planes;
    for (py::handle array : arrays) planes.append(array.attr("copy")());
    copy = py::tuple(planes);
  } else {
    copy = arrays.attr("copy")();
  }
  arrays = py::object();
  access.Exit();
  return copy;
}

py::object ImageFromNumpy(py::object arrays, int32_t format, bool adopt, LMXAllocator* allocator) {
  std::vector<py::array> planes;
  if (py::isinstance<py::tuple>(arrays) || py::isinstance<py::list>(arrays))
    for (py::handle plane : arrays) planes.push_back(py::cast<py::array>(plane));
  else
    planes.push_back(py::cast<py::array>(arrays));
  if (planes[0].ndim() < 2) Raise(LMX_STATUS_PARAM_UNSUPPORTED, "an image array has at least two dimensions");
  const auto height = static_cast<int32_t>(planes[0].shape(0));
  const auto width = static_cast<int32_t>(planes[0].shape(1));
  Image::ImageInfo info{width, height, format, 0};
  const std::vector<PlaneShape> shapes = PlaneShapes(info);
  bool matches = shapes.size() == planes.size();
  for (size_t c = 0; matches && c < shapes.size(); ++c) {
    const PlaneShape& shape = shapes[c];
    const py::array& plane = planes[c];
    matches = plane.dtype().is(shape.dtype) && plane.ndim() == (shape.channels > 1 ? 3 : 2) &&
              plane.shape(0) == shape.height && plane.shape(1) == shape.width &&
              (shape.channels == 1 || plane.shape(2) == shape.channels);
    // Adopted planes are used in place: rows may be padded, pixels may not.
    if (matches && adopt)
      matches = plane.writeable() && plane.strides(1) == shape.channels * shape.dtype.itemsize() &&
                (shape.channels == 1 || plane.strides(2) == shape.dtype.itemsize());
  }
  if (!matches)
    Raise(LMX_STATUS_PARAM_UNSUPPORTED, std::string("the array's shape, type") + (adopt ? ", strides or writeability" : "") +
                                            " does not fit the format");

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

void RegisterImageViews(py::module_& module) {
  py::class_<ImageAccess>(module, "ImageAccess",
                          "The acquisition of an image in one format, for a `with` block.\n\n"
                          "Entering acquires the image and returns NumPy arrays over its planes (for NV12\n"
                          "a (Y, UV) tuple); leaving revokes those arrays (they become empty and read-only)\n"
                          "and ends the acquisition once no view derived from them is left.")
      .def("__enter__", &ImageAccess::Enter)
      .def("__exit__", [](ImageAccess& access, py::handle, py::handle, py::handle) { access.Exit(); })
      .def_property_readonly("pointers", &ImageAccess::Pointers,
                             "Addresses of the acquired planes (empty outside the block).");
}

}  // namespace lmxpy
