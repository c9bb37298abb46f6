// The Allocator, Image, Audio and Metadata classes and the Format enumeration.
#include "image.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
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

// A depth scale the conversions can use: within 2% of a power of two (the DEPTH
// <-> DEPTH_NATIVE shift), and a shift of at most 15 bits.
float DepthScale(py::handle value) {
  if (py::isinstance<py::bool_>(value) || !(py::isinstance<py::float_>(value) || py::isinstance<py::int_>(value)))
    RaiseType("expected a depth scale as a number, got " + TypeName(value));
  const double scale = value.cast<double>();
  int exponent = 0;
  const double mantissa = scale > 0 ? std::frexp(scale, &exponent) : 0;  // scale = mantissa * 2^exponent
  const double nearest = mantissa < 0.75 ? mantissa * 2 : mantissa;
  if (!(scale > 0) || !std::isfinite(scale) || nearest <= 0.98 || nearest > 1.02 || std::abs(exponent) > 16)
    RaiseValue(
        "expected a depth scale that is a power of two (1, 0.5, 0.25, 0.125, ...; within 2%) in millimetres "
        "per DEPTH unit, got " +
        std::string(py::repr(value)));
  return static_cast<float>(scale);
}

// The metadata store of an image, as a mapping from identifier to bytes.
struct PyMetadata {
  py::object owner;  // the Python Image
  Metadata* store;

  std::optional<std::string> Find(int32_t id) const {
    const int32_t size = store->QueryBufferSize(id);
    if (size <= 0) return std::nullopt;
    std::string bytes(static_cast<size_t>(size), '\0');
    Check(store->QueryBuffer(id, reinterpret_cast<uint8_t*>(bytes.data()), size), "QueryBuffer");
    return bytes;
  }
  py::bytes Get(int32_t id) const {
    std::optional<std::string> bytes = Find(id);
    if (!bytes) throw py::key_error("no metadata under id " + IdText(id));
    return py::bytes(*bytes);
  }
  // Plain numbers are stored as 4 bytes (float32 or int32; any number under
  // DEPTH_SCALE as a float32 depth scale), anything else through its buffer; an
  // earlier value is replaced.
  void Set(int32_t id, const py::handle& value) const {
    std::string bytes;
    if (id == kMetadataDepthScale) {
      const float scale = DepthScale(value);
      bytes.assign(reinterpret_cast<const char*>(&scale), sizeof(scale));
    } else if (py::isinstance<py::float_>(value)) {
      const float number = value.cast<float>();
      bytes.assign(reinterpret_cast<const char*>(&number), sizeof(number));
    } else if (py::isinstance<py::int_>(value)) {
      const long long number = PyLong_AsLongLong(value.ptr());
      if (PyErr_Occurred() || number < INT32_MIN || number > INT32_MAX) {
        PyErr_Clear();
        RaiseValue("expected an int32 (-2**31 to 2**31-1) as a metadata int, got " + std::string(py::str(value)) +
                   "; store wider values as bytes");
      }
      const auto narrow = static_cast<int32_t>(number);
      bytes.assign(reinterpret_cast<const char*>(&narrow), sizeof(narrow));
    } else if (PyObject_CheckBuffer(value.ptr())) {
      bytes = py::bytes(
          py::module_::import("builtins").attr("bytes")(py::memoryview(py::reinterpret_borrow<py::object>(value))));
    } else {
      RaiseType("expected bytes (or another buffer), a float or an int as a metadata value, got " + TypeName(value));
    }
    if (bytes.empty()) RaiseValue("expected a metadata value of at least one byte, got an empty buffer");
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
  static std::string IdText(int32_t id) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(id));
    return text;
  }
};

PyImage& ImageOf(py::object& owner) { return owner.cast<PyImage&>(); }

PyMetadata MetadataOf(py::object owner) {
  auto* store = static_cast<Metadata*>(ImageOf(owner).image->QueryInstance(Metadata::kIid));
  if (!store) Raise(LMX_STATUS_FEATURE_UNSUPPORTED, "the image has no metadata store");
  return {std::move(owner), store};
}

// The format an argument names: None or 0 is `native` where that is allowed.
int32_t FormatOf(std::optional<FormatArg> format, int32_t native) {
  const int32_t value = format ? format->value : 0;
  if (value == 0 && native) return native;
  for (const auto& [name, code] : kFormats)
    if (code == value) return value;
  std::string names;
  for (const auto& [name, code] : kFormats) names += std::string(names.empty() ? "" : ", ") + name;
  RaiseValue("expected an lmxcore.Format (" + names + ")" + (native ? " or None for the native one" : "") + ", got " +
             std::to_string(value));
}

py::object CreateImage(LMXAllocator* allocator, int width, int height, int32_t format) {
  if (width < 1 || height < 1)
    RaiseValue("expected a width and height of at least 1, got " + std::to_string(width) + "x" +
               std::to_string(height));
  auto image = std::make_unique<PyImage>();
  image->info = {width, height, format, 0};
  Image* created = nullptr;
  Check(allocator->CreateImage(&image->info, 0, nullptr, &created), "CreateImage");
  image->image = Ref<Image>(created);
  return py::cast(std::move(image));
}

LMXAllocator* DefaultAllocator() { return Library::Get().DefaultAllocator(); }

}  // namespace

std::string FormatName(int32_t format) {
  for (const auto& [name, code] : kFormats)
    if (code == (format & kPixelFormatMask)) return name;
  return "format " + std::to_string(format);
}

std::string ShapeText(const py::array& array) {
  std::string text = "(";
  for (ssize_t d = 0; d < array.ndim(); ++d) text += (d ? ", " : "") + std::to_string(array.shape(d));
  return text + (array.ndim() == 1 ? ",)" : ")");
}

std::string DtypeName(const py::array& array) { return py::str(py::handle(array.dtype())); }

int ChannelsOf(const py::array& samples, std::optional<int> channels) {
  const bool isFloat = samples.dtype().is(py::dtype::of<float>());
  if (!isFloat && !samples.dtype().is(py::dtype::of<int16_t>()))
    RaiseType("expected int16 or float32 samples, got " + DtypeName(samples));
  if (channels && *channels < 1) RaiseValue("expected channels of at least 1, got " + std::to_string(*channels));
  if (samples.ndim() == 2) {
    if (channels && *channels != samples.shape(1))
      RaiseValue("expected samples of shape (frames, " + std::to_string(*channels) +
                 ") for channels=" + std::to_string(*channels) + ", got " + ShapeText(samples));
    if (samples.shape(1) < 1) RaiseValue("expected at least one channel, got shape " + ShapeText(samples));
    return static_cast<int>(samples.shape(1));
  }
  if (samples.ndim() != 1)
    RaiseValue("expected samples of shape (frames,) or (frames, channels), got " + ShapeText(samples));
  const int count = channels.value_or(1);
  if (samples.size() % count != 0)
    RaiseValue("expected whole frames: " + std::to_string(samples.size()) +
               " samples are not a multiple of channels=" + std::to_string(count));
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

  // Declared before any method, so that signatures name them as Python sees them.
  py::class_<PyAllocator> allocator(module, "Allocator",
                                    "The library's allocator service: creates images and audio objects.");
  py::class_<PyImage> image(module, "Image",
                            "An image object: one frame held in several formats, converted on demand.");
  py::class_<PyMetadata> metadata(module, "Metadata",
                                  "An object's metadata store: identifier -> bytes. Setting a float or an int stores\n"
                                  "it as 4 bytes (float32 / int32); anything else is stored through its buffer.");
  py::class_<PyAudio> audio(module, "Audio", "An audio object: interleaved samples in 16-bit PCM or float32.");
  RegisterImageViews(module);

  allocator
      .def(py::init([] {
        void* face = nullptr;
        Library& library = Library::Get();
        Check(library.Create(LMXAllocator::kIid, library.DefaultSession(), &face), "allocator factory");
        return PyAllocator{Ref<LMXAllocator>(static_cast<LMXAllocator*>(face))};
      }))
      .def(
          "image",
          [](PyAllocator& self, int width, int height, FormatArg format) {
            return Typed<ImageType>{CreateImage(self.allocator.Get(), width, height, FormatOf(format, 0))};
          },
          py::arg("width"), py::arg("height"), py::arg("format"),
          "A new image of width x height pixels (at least 1 each) whose native format is `format`.")
      .def(
          "audio",
          [](PyAllocator& self, const py::array& samples, int rate, std::optional<int> channels) {
            return CreateAudio(self.allocator.Get(), samples, rate, ChannelsOf(samples, channels));
          },
          py::arg("samples"), py::arg("rate"), py::arg("channels") = py::none(),
          "A new audio object holding a copy of int16 or float32 samples: (frames, channels), or\n"
          "flat with `channels` interleaved (default 1).")
      .def("__repr__", [](PyAllocator&) { return "<lmxcore.Allocator of " + Library::Get().Path().string() + ">"; });

  image.def_property_readonly("width", [](const PyImage& self) { return self.info.width; })
      .def_property_readonly("height", [](const PyImage& self) { return self.info.height; })
      .def_property_readonly(
          "format", [](const PyImage& self) { return FormatArg{self.info.format}; }, "The native format.")
      .def(
          "read",
          [](Typed<ImageType> self, std::optional<FormatArg> format, int rotate) {
            const int32_t native = self.object.cast<PyImage&>().info.format;
            return ImageAccess(std::move(self.object), Image::ACCESS_READ, FormatOf(format, native), rotate);
          },
          py::arg("format") = py::none(), py::arg("rotate") = 0,
          "Read access in `format` (None: native), rotated by 0, 90, 180 or 270 degrees, for a\n"
          "`with` block that gives read-only arrays over the planes.")
      .def(
          "write",
          [](Typed<ImageType> self, std::optional<FormatArg> format) {
            const int32_t native = self.object.cast<PyImage&>().info.format;
            return ImageAccess(std::move(self.object), Image::ACCESS_WRITE, FormatOf(format, native), 0);
          },
          py::arg("format") = py::none(),
          "Write access in `format` (None: native) for a `with` block that gives writeable arrays;\n"
          "leaving the block makes every other format stale.")
      .def(
          "to_numpy",
          [](Typed<ImageType> self, std::optional<FormatArg> format, int rotate) {
            const int32_t native = self.object.cast<PyImage&>().info.format;
            return Typed<PlanesType>{CopyToNumpy(std::move(self.object), FormatOf(format, native), rotate)};
          },
          py::arg("format") = py::none(), py::arg("rotate") = 0,
          "A copy of the image in `format` (None: native; NV12: a (Y, UV) tuple).")
      .def_static(
          "from_numpy",
          [](Typed<PlanesType> arrays, FormatArg format, bool adopt, PyAllocator* allocator) {
            return Typed<ImageType>{ImageFromNumpy(std::move(arrays.object), FormatOf(format, 0), adopt,
                                                   allocator ? allocator->allocator.Get() : DefaultAllocator())};
          },
          py::arg("array"), py::arg("format"), py::kw_only(), py::arg("adopt") = false, py::arg("allocator") = nullptr,
          "A new image holding the array (NV12: a (Y, UV) tuple) in `format`, sized by the array.\n"
          "With adopt=True the image uses the array's memory and keeps the array alive.")
      .def_property_readonly(
          "metadata", [](Typed<ImageType> self) { return MetadataOf(std::move(self.object)); },
          "The image's metadata store, a mapping from identifier to bytes.")
      .def_property(
          "depth_scale",
          [](Typed<ImageType> self) {
            const std::optional<std::string> value = MetadataOf(std::move(self.object)).Find(kMetadataDepthScale);
            if (!value || value->size() != sizeof(float))
              Raise(LMX_STATUS_ITEM_UNAVAILABLE, "depth_scale: the image has none; set it first");
            float scale = 0;
            std::memcpy(&scale, value->data(), sizeof(scale));
            return scale;
          },
          [](Typed<ImageType> self, py::handle scale) {
            MetadataOf(std::move(self.object)).Set(kMetadataDepthScale, scale);
          },
          "Millimetres per DEPTH unit (metadata DEPTH_SCALE, a float32): a power of two such as\n"
          "1, 0.5 or 0.125, refused otherwise when set. It drives the depth conversions: DEPTH <->\n"
          "DEPTH_NATIVE shift by its power of two, DEPTH_NATIVE <-> DEPTH_FLOAT (millimetres)\n"
          "multiply by it. Without one, DEPTH -> DEPTH_FLOAT widens the values as they are and\n"
          "DEPTH_NATIVE is refused. Reading it before it was set raises LmxError (ITEM_UNAVAILABLE).")
      .def("__repr__", [](const PyImage& self) {
        return "<lmxcore.Image " + std::to_string(self.info.width) + "x" + std::to_string(self.info.height) + " " +
               FormatName(self.info.format) + (self.adopted ? ", adopted memory" : "") + ">";
      });

  metadata.def("__getitem__", &PyMetadata::Get, py::arg("id"))
      .def(
          "__setitem__",
          [](const PyMetadata& self, int32_t id, Typed<MetadataValueType> value) { self.Set(id, value.object); },
          py::arg("id"), py::arg("value"))
      .def(
          "__delitem__",
          [](const PyMetadata& self, int32_t id) {
            if (!self.Find(id)) throw py::key_error("no metadata under id " + PyMetadata::IdText(id));
            self.store->DetachMetadata(id);
          },
          py::arg("id"))
      .def(
          "__contains__", [](const PyMetadata& self, int32_t id) { return self.store->QueryBufferSize(id) > 0; },
          py::arg("id"))
      .def("__iter__", [](const PyMetadata& self) { return Typed<IdIterator>{self.Keys().attr("__iter__")()}; })
      .def("__len__", [](const PyMetadata& self) { return py::len(self.Keys()); })
      .def(
          "value",
          [](const PyMetadata& self, int32_t id, Typed<DtypeLike> dtype) {
            return Typed<NumberType>{
                py::module_::import("numpy").attr("frombuffer")(self.Get(id), dtype.object)[py::int_(0)].attr(
                    "item")()};
          },
          py::arg("id"), py::arg("dtype") = "f4",
          "The value stored under id, read as one element of `dtype` (default float32).")
      .def("__repr__", [](const PyMetadata& self) {
        std::string text = "<lmxcore.Metadata";
        for (py::handle id : self.Keys())
          text += " " + PyMetadata::IdText(id.cast<int32_t>()) + ":" +
                  std::to_string(self.store->QueryBufferSize(id.cast<int32_t>())) + "B";
        return text + ">";
      });

  audio.def_property_readonly("rate", [](PyAudio& self) { return self.audio->QueryInfo().sampleRate; })
      .def_property_readonly("channels", [](PyAudio& self) { return self.audio->QueryInfo().nchannels; })
      .def(
          "to_numpy",
          [](PyAudio& self, Typed<DtypeType> dtype) {
            int32_t format = 0;
            if (!dtype.object.is_none()) {
              const py::dtype wanted = py::dtype::from_args(dtype.object);
              if (!wanted.is(py::dtype::of<float>()) && !wanted.is(py::dtype::of<int16_t>()))
                RaiseType("expected int16, float32 or None as the dtype, got " +
                          std::string(py::str(py::handle(wanted))));
              format = wanted.is(py::dtype::of<float>()) ? LMXAudioObject::AUDIO_FORMAT_IEEE_FLOAT
                                                         : LMXAudioObject::AUDIO_FORMAT_PCM;
            }
            return AudioToNumpy(self.audio.Get(), format);
          },
          py::arg("dtype") = py::none(),
          "A copy of the samples, (frames,) or (frames, channels), as int16 or float32\n"
          "(default: as held).")
      .def("__repr__", [](PyAudio& self) {
        const LMXAudioObject::AudioInfo info = self.audio->QueryInfo();
        const int channels = info.nchannels > 0 ? info.nchannels : 1;
        return "<lmxcore.Audio " + std::to_string(info.sampleRate) + " Hz, " + std::to_string(channels) +
               " channels, " + std::to_string(info.bufferSize / channels) + " frames, " +
               (info.format == LMXAudioObject::AUDIO_FORMAT_IEEE_FLOAT ? "float32" : "int16") + ">";
      });
}

}  // namespace lmxpy
