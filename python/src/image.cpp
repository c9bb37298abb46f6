// The Allocator, Image, Audio and Metadata classes and the Format enumeration.
#include "image.h"

#include <cstring>
#include <string>

#include "core_metadata.h"
#include "errors.h"
#include "image_views.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

constexpr int32_t kMetadataDepthScale = 0x24740F78;  // a float

constexpr std::pair<const char*, int32_t> kFormats[] = {
    {"YUY2", Image::PIXEL_FORMAT_YUY2},
    {"NV12", Image::PIXEL_FORMAT_NV12},
    {"BGRA", Image::PIXEL_FORMAT_BGRA},
    {"BGR", Image::PIXEL_FORMAT_BGR},
    {"Y8", Image::PIXEL_FORMAT_Y8},
    {"RGBA", Image::PIXEL_FORMAT_RGBA},
    {"RGB", Image::PIXEL_FORMAT_RGB},
    {"DEPTH", Image::PIXEL_FORMAT_DEPTH},
    {"DEPTH_NATIVE", Image::PIXEL_FORMAT_DEPTH_NATIVE},
    {"DEPTH_FLOAT", Image::PIXEL_FORMAT_DEPTH_FLOAT},
    {"Y16", Image::PIXEL_FORMAT_Y16},
    {"Y8_REL", Image::PIXEL_FORMAT_Y8_RELATIVE},
    {"DEPTH_CONF", Image::PIXEL_FORMAT_DEPTH_CONFIDENCE},
};

// The metadata store of an image, as a mapping from identifier to bytes.
struct PyMetadata {
  py::object owner;  // the Python Image
  Metadata* store;

  py::bytes Get(int32_t id) const {
    const int32_t size = store->QueryBufferSize(id);
    if (size <= 0) throw py::key_error(std::to_string(id));
    std::string bytes(static_cast<size_t>(size), '\0');
    Check(store->QueryBuffer(id, reinterpret_cast<uint8_t*>(bytes.data()), size), "QueryBuffer");
    return py::bytes(bytes);
  }
  // Plain numbers are stored as 4 bytes (float32 or int32), anything else through
  // its buffer; an earlier value is replaced.
  void Set(int32_t id, const py::object& value) const {
    std::string bytes;
    if (py::isinstance<py::float_>(value)) {
      const float number = value.cast<float>();
      bytes.assign(reinterpret_cast<const char*>(&number), sizeof(number));
    } else if (py::isinstance<py::int_>(value)) {
      const int32_t number = value.cast<int32_t>();
      bytes.assign(reinterpret_cast<const char*>(&number), sizeof(number));
    } else {
      bytes = py::bytes(py::module_::import("builtins").attr("bytes")(value));
    }
    store->DetachMetadata(id);
    Check(store->AttachBuffer(id, reinterpret_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(bytes.size())),
          "AttachBuffer");
  }
  py::list Keys() const {
    py::list keys;
    for (int32_t index = 0, id; (id = store->QueryMetadata(index)) != 0; ++index)
      if (store->QueryBufferSize(id) > 0) keys.append(id);
    return keys;
  }
};

PyImage& ImageOf(py::object& owner) { return owner.cast<PyImage&>(); }

PyMetadata MetadataOf(py::object owner) {
  auto* store = static_cast<Metadata*>(ImageOf(owner).image->QueryInstance(Metadata::kIid));
  if (!store) Raise(LMX_STATUS_FEATURE_UNSUPPORTED, "the image has no metadata store");
  return {std::move(owner), store};
}

py::object CreateImage(LMXAllocator* allocator, int width, int height, int32_t format) {
  auto image = std::make_unique<PyImage>();
  image->info = {width, height, format, 0};
  Image* created = nullptr;
  Check(allocator->CreateImage(&image->info, 0, nullptr, &created), "CreateImage");
  image->image = Ref<Image>(created);
  return py::cast(std::move(image));
}

LMXAllocator* DefaultAllocator() { return Library::Get().DefaultAllocator(); }

}  // namespace

std::string ShapeText(const py::array& array) {
  std::string text = "(";
  for (ssize_t d = 0; d < array.ndim(); ++d) text += (d ? ", " : "") + std::to_string(array.shape(d));
  return text + (array.ndim() == 1 ? ",)" : ")");
}

std::string DtypeName(const py::array& array) { return py::str(array.dtype()); }

int ChannelsOf(const py::array& samples, std::optional<int> channels) {
  const bool isFloat = samples.dtype().is(py::dtype::of<float>());
  if (!isFloat && !samples.dtype().is(py::dtype::of<int16_t>()))
    RaiseType("expected int16 or float32 samples, got " + DtypeName(samples));
  if (channels && *channels < 1) RaiseValue("expected channels of at least 1, got " + std::to_string(*channels));
  if (samples.ndim() == 2) {
    if (channels && *channels != samples.shape(1))
      RaiseValue("expected samples of shape (frames, " + std::to_string(*channels) + ") for channels=" +
                 std::to_string(*channels) + ", got " + ShapeText(samples));
    if (samples.shape(1) < 1) RaiseValue("expected at least one channel, got shape " + ShapeText(samples));
    return static_cast<int>(samples.shape(1));
  }
  if (samples.ndim() != 1)
    RaiseValue("expected samples of shape (frames,) or (frames, channels), got " + ShapeText(samples));
  const int count = channels.value_or(1);
  if (samples.size() % count != 0)
    RaiseValue("expected whole frames: " + std::to_string(samples.size()) + " samples are not a multiple of channels=" +
               std::to_string(count));
  return count;
}

PyAudio CreateAudio(LMXAllocator* allocator, const py::array& samples, int rate, int channels) {
  const bool isFloat = samples.dtype().is(py::dtype::of<float>());
  if (rate <= 0) RaiseValue("expected a positive sample rate, got " + std::to_string(rate));
  auto contiguous = py::array::ensure(samples, py::array::c_style);
  LMXAudioObject::AudioInfo info{};
  info.bufferSize = static_cast<int32_t>(samples.size());
  info.format = isFloat ? LMXAudioObject::AUDIO_FORMAT_IEEE_FLOAT : LMXAudioObject::AUDIO_FORMAT_PCM;
  info.sampleRate = rate;
  info.nchannels = channels;
  LMXAudioObject* created = nullptr;
  Check(allocator->CreateAudio(&info, 0, nullptr, &created), "CreateAudio");
  PyAudio audio{Ref<LMXAudioObject>(created)};
  LMXAudioObject::AudioData data{};
  Check(created->AcquireAccess(LMXAudioObject::ACCESS_WRITE, info.format, &data), "AcquireAccess");
  std::memcpy(data.dataPtr, contiguous.data(), static_cast<size_t>(contiguous.nbytes()));
  data.dataSize = info.bufferSize;
  Check(created->ReleaseAccess(&data), "ReleaseAccess");
  return audio;
}

py::array AudioToNumpy(LMXAudioObject* audio, int32_t format) {
  const LMXAudioObject::AudioInfo info = audio->QueryInfo();
  LMXAudioObject::AudioData data{};
  Check(audio->AcquireAccess(LMXAudioObject::ACCESS_READ, static_cast<LMXAudioObject::AudioFormat>(format), &data),
        "AcquireAccess");
  const bool isFloat = data.format == LMXAudioObject::AUDIO_FORMAT_IEEE_FLOAT;
  const ssize_t channels = info.nchannels > 0 ? info.nchannels : 1;
  std::vector<ssize_t> shape{data.dataSize / channels};
  if (channels > 1) shape.push_back(channels);
  py::array samples(isFloat ? py::dtype::of<float>() : py::dtype::of<int16_t>(), shape);
  std::memcpy(samples.mutable_data(), data.dataPtr, static_cast<size_t>(samples.nbytes()));
  Check(audio->ReleaseAccess(&data), "ReleaseAccess");
  return samples;
}

void RegisterImages(py::module_& module) {
  py::dict formats;
  for (const auto& [name, value] : kFormats) formats[name] = value;
  py::object format = py::module_::import("enum").attr("IntEnum")("Format", formats);
  format.attr("__module__") = "lmxcore";
  format.attr("__doc__") = "Pixel formats, by the names the library prints.";
  module.attr("Format") = format;
  module.attr("DEPTH_SCALE") = kMetadataDepthScale;

  py::class_<PyAllocator>(module, "Allocator", "The library's allocator service: creates images and audio objects.")
      .def(py::init([] {
        void* face = nullptr;
        Library& library = Library::Get();
        Check(library.Create(LMXAllocator::kIid, library.DefaultSession(), &face), "allocator factory");
        return PyAllocator{Ref<LMXAllocator>(static_cast<LMXAllocator*>(face))};
      }))
      .def("image", [](PyAllocator& self, int width, int height, int32_t format) {
            return CreateImage(self.allocator.Get(), width, height, format);
          }, py::arg("width"), py::arg("height"), py::arg("format"),
          "A new image of width x height pixels whose native format is `format`.")
      .def("audio", [](PyAllocator& self, const py::array& samples, int rate, std::optional<int> channels) {
            return CreateAudio(self.allocator.Get(), samples, rate, ChannelsOf(samples, channels));
          }, py::arg("samples"), py::arg("rate"), py::arg("channels") = py::none(),
          "A new audio object holding a copy of int16 or float32 samples: (frames, channels), or\n"
          "flat with `channels` interleaved (default 1).");

  py::class_<PyImage>(module, "Image", "An image object: one frame held in several formats, converted on demand.")
      .def_property_readonly("width", [](const PyImage& self) { return self.info.width; })
      .def_property_readonly("height", [](const PyImage& self) { return self.info.height; })
      .def_property_readonly("format", [](const PyImage& self) {
        return py::module_::import("lmxcore").attr("Format")(self.info.format);
      }, "The native format.")
      .def("read", [](py::object self, int32_t format, int rotate) {
            return ImageAccess(std::move(self), Image::ACCESS_READ, format, rotate);
          }, py::arg("format") = 0, py::arg("rotate") = 0,
          "Read access in `format` (0: native), rotated by 0, 90, 180 or 270 degrees, for a\n"
          "`with` block that gives read-only arrays over the planes.")
      .def("write", [](py::object self, int32_t format) {
            return ImageAccess(std::move(self), Image::ACCESS_WRITE, format, 0);
          }, py::arg("format") = 0,
          "Write access in `format` (0: native) for a `with` block that gives writeable arrays;\n"
          "leaving the block makes every other format stale.")
      .def("to_numpy", &CopyToNumpy, py::arg("format") = 0, py::arg("rotate") = 0,
           "A copy of the image in `format` (NV12: a (Y, UV) tuple).")
      .def_static("from_numpy", [](py::object arrays, int32_t format, bool adopt, PyAllocator* allocator) {
            return ImageFromNumpy(std::move(arrays), format, adopt,
                                  allocator ? allocator->allocator.Get() : DefaultAllocator());
          }, py::arg("array"), py::arg("format"), py::kw_only(), py::arg("adopt") = false,
          py::arg("allocator") = nullptr,
          "A new image holding the array (NV12: a (Y, UV) pair) in `format`. With adopt=True\n"
          "the image uses the array's memory and keeps the array alive.")
      .def_property_readonly("metadata", [](py::object self) { return MetadataOf(std::move(self)); },
                             "The image's metadata store, a mapping from identifier to bytes.")
      .def_property("depth_scale",
          [](py::object self) {
            const py::bytes value = MetadataOf(std::move(self)).Get(kMetadataDepthScale);
            float scale = 0;
            std::memcpy(&scale, std::string(value).data(), sizeof(scale));
            return scale;
          },
          [](py::object self, float scale) { MetadataOf(std::move(self)).Set(kMetadataDepthScale, py::float_(scale)); },
          "Millimetres per DEPTH unit (metadata DEPTH_SCALE, a float32).");

  py::class_<PyMetadata>(module, "Metadata",
                         "An object's metadata store: identifier -> bytes. Setting a float or an int stores\n"
                         "it as 4 bytes (float32 / int32); anything else is stored through its buffer.")
      .def("__getitem__", &PyMetadata::Get)
      .def("__setitem__", &PyMetadata::Set)
      .def("__delitem__", [](const PyMetadata& self, int32_t id) { self.store->DetachMetadata(id); })
      .def("__contains__", [](const PyMetadata& self, int32_t id) { return self.store->QueryBufferSize(id) > 0; })
      .def("__iter__", [](const PyMetadata& self) { return self.Keys().attr("__iter__")(); })
      .def("__len__", [](const PyMetadata& self) { return py::len(self.Keys()); })
      .def("value", [](const PyMetadata& self, int32_t id, py::object dtype) {
            return py::module_::import("numpy").attr("frombuffer")(self.Get(id), dtype)[py::int_(0)].attr("item")();
          }, py::arg("id"), py::arg("dtype") = "f4",
          "The value stored under id, read as one element of `dtype` (default float32).");

  py::class_<PyAudio>(module, "Audio", "An audio object: interleaved samples in 16-bit PCM or float32.")
      .def_property_readonly("rate", [](PyAudio& self) { return self.audio->QueryInfo().sampleRate; })
      .def_property_readonly("channels", [](PyAudio& self) { return self.audio->QueryInfo().nchannels; })
      .def("to_numpy", [](PyAudio& self, py::object dtype) {
            int32_t format = 0;
            if (!dtype.is_none()) {
              const py::dtype wanted = py::dtype::from_args(dtype);
              format = wanted.is(py::dtype::of<float>()) ? LMXAudioObject::AUDIO_FORMAT_IEEE_FLOAT
                                                         : LMXAudioObject::AUDIO_FORMAT_PCM;
            }
            return AudioToNumpy(self.audio.Get(), format);
          }, py::arg("dtype") = py::none(),
          "A copy of the samples, (frames,) or (frames, channels), as int16 or float32\n"
          "(default: as held).");

  RegisterImageViews(module);
}

}  // namespace lmxpy
