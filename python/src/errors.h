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

// Defines LmxError and the Status enumeration in the module.
void RegisterErrors(py::module_& module);

}  // namespace lmxpy
