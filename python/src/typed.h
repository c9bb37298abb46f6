// typed.h: how help() and the signatures name the Python objects the binding
// passes through untyped.
//
// pybind11 shows a py::object argument or result as "object". Typed<Name> carries
// the same object but shows as Name::text; the binding checks the object itself,
// with messages that say what was expected.
//
// Example:
//   struct ImageType { static constexpr auto text = py::detail::const_name("lmxcore.Image"); };
//   .def("copy", [](Typed<ImageType> self) -> Typed<ImageType> { ... });
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>

namespace lmxpy {

namespace py = pybind11;

template <class Name>
struct Typed {
  py::object object;
};

#define LMXPY_TYPE_NAME(Tag, Text)                             \
  struct Tag {                                                 \
    static constexpr auto text = py::detail::const_name(Text); \
  }

LMXPY_TYPE_NAME(ImageType, "lmxcore.Image");
LMXPY_TYPE_NAME(PlanesType, "numpy.ndarray | tuple[numpy.ndarray, numpy.ndarray]");
LMXPY_TYPE_NAME(StatusType, "lmxcore.Status");
LMXPY_TYPE_NAME(SyncPointOrNone, "lmxcore.SyncPoint | None");
LMXPY_TYPE_NAME(KeysType, "Iterable[object]");
LMXPY_TYPE_NAME(TaskType, "Callable[[], int | None]");
LMXPY_TYPE_NAME(StatusTaskType, "Callable[[lmxcore.Status], int | None]");
LMXPY_TYPE_NAME(TimeoutType, "float | None");
LMXPY_TYPE_NAME(NumberType, "int | float");
LMXPY_TYPE_NAME(MetadataValueType, "bytes | float | int");
LMXPY_TYPE_NAME(DtypeType, "numpy.dtype | None");
LMXPY_TYPE_NAME(DtypeLike, "numpy.dtype | str");
LMXPY_TYPE_NAME(IdIterator, "Iterator[int]");
LMXPY_TYPE_NAME(ExceptionType, "type | None");
LMXPY_TYPE_NAME(ExceptionValue, "BaseException | None");
LMXPY_TYPE_NAME(TracebackType, "types.TracebackType | None");

// A pixel format argument: any int (an lmxcore.Format member is one); the binding
// checks that it names a format.
struct FormatArg {
  int32_t value = 0;
};

}  // namespace lmxpy

namespace pybind11::detail {

template <class Name>
struct type_caster<lmxpy::Typed<Name>> {
  PYBIND11_TYPE_CASTER(lmxpy::Typed<Name>, Name::text);
  bool load(handle source, bool) {
    value.object = reinterpret_borrow<object>(source);
    return true;
  }
  static handle cast(const lmxpy::Typed<Name>& source, return_value_policy, handle) { return source.object.inc_ref(); }
};

template <>
struct type_caster<lmxpy::FormatArg> {
  PYBIND11_TYPE_CASTER(lmxpy::FormatArg, const_name("lmxcore.Format"));
  bool load(handle source, bool) {
    if (!PyLong_Check(source.ptr()) || PyBool_Check(source.ptr())) return false;
    const long long number = PyLong_AsLongLong(source.ptr());
    if (PyErr_Occurred() || number < INT32_MIN || number > INT32_MAX) {
      PyErr_Clear();
      return false;
    }
    value.value = static_cast<int32_t>(number);
    return true;
  }
  static handle cast(const lmxpy::FormatArg& source, return_value_policy, handle) {
    return module_::import("lmxcore").attr("Format")(source.value).release();
  }
};

}  // namespace pybind11::detail
