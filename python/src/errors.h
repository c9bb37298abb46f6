// errors.h: failing statuses as Python exceptions.
//
// Every negative Status the library answers becomes lmxcore.LmxError, carrying the
// status (an lmxcore.Status member when the value is known) and its text.
//
// Example:
//   Check(image->AcquireAccess(...), "AcquireAccess");   // raises on failure
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "lmxstatus.h"

namespace lmxpy {

namespace py = pybind11;
using Norvik::Lumetra::Status;

// The library's text of a status ("LMX_STATUS_... (...)").
std::string StatusText(Status sts);
// Raises LmxError for sts; `what` names the failing operation.
[[noreturn]] void Raise(Status sts, const std::string& what);
// Raises for a negative status; returns success and warnings unchanged.
inline Status Check(Status sts, const char* what) {
  if (sts < 0) Raise(sts, what);
  return sts;
}
// The lmxcore.Status member of a value, or the plain int for an unknown one.
py::object StatusObject(Status sts);

// Misuse that never reaches the library: TypeError for an argument of the wrong
// type, ValueError for a wrong value. Messages say what was expected.
[[noreturn]] inline void RaiseType(const std::string& message) { throw py::type_error(message); }
[[noreturn]] inline void RaiseValue(const std::string& message) { throw py::value_error(message); }
// The name of an object's type, for messages ("got str").
std::string TypeName(py::handle object);
// A timeout in seconds (None: forever) as milliseconds (-1: forever); refuses other types.
int64_t TimeoutMs(py::handle timeout);

// Defines LmxError and the Status enumeration in the module.
void RegisterErrors(py::module_& module);

}  // namespace lmxpy
