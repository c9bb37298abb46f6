// LmxError and the Status enumeration.
#include "errors.h"

#include <pybind11/eval.h>

#include "lmxutils.h"

namespace lmxpy {

using namespace Norvik::Lumetra;

namespace {

py::object& ErrorType() {
  static py::object* type = new py::object();  // lives as long as the process
  return *type;
}
py::object& StatusType() {
  static py::object* type = new py::object();
  return *type;
}

constexpr std::pair<const char*, Status> kStatuses[] = {
    {"NO_ERROR", LMX_STATUS_NO_ERROR},
    {"FEATURE_UNSUPPORTED", LMX_STATUS_FEATURE_UNSUPPORTED},
    {"PARAM_UNSUPPORTED", LMX_STATUS_PARAM_UNSUPPORTED},
    {"ITEM_UNAVAILABLE", LMX_STATUS_ITEM_UNAVAILABLE},
    {"HANDLE_INVALID", LMX_STATUS_HANDLE_INVALID},
    {"ALLOC_FAILED", LMX_STATUS_ALLOC_FAILED},
    {"DEVICE_FAILED", LMX_STATUS_DEVICE_FAILED},
    {"DEVICE_LOST", LMX_STATUS_DEVICE_LOST},
    {"DEVICE_BUSY", LMX_STATUS_DEVICE_BUSY},
    {"EXEC_ABORTED", LMX_STATUS_EXEC_ABORTED},
    {"EXEC_INPROGRESS", LMX_STATUS_EXEC_INPROGRESS},
    {"EXEC_TIMEOUT", LMX_STATUS_EXEC_TIMEOUT},
    {"FILE_WRITE_FAILED", LMX_STATUS_FILE_WRITE_FAILED},
    {"FILE_READ_FAILED", LMX_STATUS_FILE_READ_FAILED},
    {"FILE_CLOSE_FAILED", LMX_STATUS_FILE_CLOSE_FAILED},
    {"DATA_UNAVAILABLE", LMX_STATUS_DATA_UNAVAILABLE},
    {"DATA_NOT_INITIALIZED", LMX_STATUS_DATA_NOT_INITIALIZED},
    {"INIT_FAILED", LMX_STATUS_INIT_FAILED},
    {"STREAM_CONFIG_CHANGED", LMX_STATUS_STREAM_CONFIG_CHANGED},
    {"POWER_UID_ALREADY_REGISTER", LMX_STATUS_POWER_UID_ALREADY_REGISTER},
    {"POWER_UID_NOT_REGISTERED", LMX_STATUS_POWER_UID_NOT_REGISTERED},
    {"POWER_ILLEGAL_STATE", LMX_STATUS_POWER_ILLEGAL_STATE},
    {"POWER_PROVIDER_NOT_EXISTS", LMX_STATUS_POWER_PROVIDER_NOT_EXISTS},
    {"CAPTURE_CONFIG_ALREADY_SET", LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET},
    {"TIME_GAP", LMX_STATUS_TIME_GAP},
    {"PARAM_INPLACE", LMX_STATUS_PARAM_INPLACE},
    {"DATA_NOT_CHANGED", LMX_STATUS_DATA_NOT_CHANGED},
    {"PROCESS_FAILED", LMX_STATUS_PROCESS_FAILED},
};

}  // namespace

std::string StatusText(Status sts) {
  const char* text = GetStatusText(sts);
  // Unknown values come back as a wide text through the narrow pointer.
  if (text == reinterpret_cast<const char*>(kUnknownStatusText))
    return "Unknown lmxStatus code " + std::to_string(static_cast<int>(sts));
  return text;
}

py::object StatusObject(Status sts) {
  for (const auto& [name, value] : kStatuses)
    if (value == sts) return StatusType()(static_cast<int>(sts));
  return py::int_(static_cast<int>(sts));
}

std::string TypeName(py::handle object) { return py::str(py::type::handle_of(object).attr("__qualname__")); }

int64_t TimeoutMs(py::handle timeout) {
  if (timeout.is_none()) return -1;
  if (py::isinstance<py::bool_>(timeout) || !(py::isinstance<py::float_>(timeout) || py::isinstance<py::int_>(timeout)))
    RaiseType("expected a timeout in seconds (a number, or None to wait until signalled), got " + TypeName(timeout));
  const double seconds = timeout.cast<double>();
  if (!(seconds >= 0) || seconds > 1e9)
    RaiseValue("expected a timeout of 0 to 1e9 seconds, or None to wait until signalled, got " +
               std::string(py::str(timeout)));
  return static_cast<int64_t>(seconds * 1000.0 + 0.5);
}

void Raise(Status sts, const std::string& what) {
  py::object error = ErrorType()(StatusObject(sts), StatusText(sts), what);
  PyErr_SetObject(ErrorType().ptr(), error.ptr());
  throw py::error_already_set();
}

void RegisterErrors(py::module_& module) {
  py::dict statuses;
  for (const auto& [name, value] : kStatuses) statuses[name] = static_cast<int>(value);
  StatusType() = py::module_::import("enum").attr("IntEnum")("Status", statuses);
  StatusType().attr("__module__") = "lmxcore";
  StatusType().attr("__doc__") = "Status codes: 0 success, negative errors, positive warnings.";
  module.attr("Status") = StatusType();

  py::dict scope;
  py::exec(R"(
class LmxError(RuntimeError):
    """A library operation answered a failing status.

    status: the Status (a plain int for a value the enumeration lacks)
    text:   the library's text of the status
    """
    def __init__(self, status, text, what=""):
        super().__init__(f"{what}: {text}" if what else text)
        self.status = status
        self.text = text
)",
           scope);
  ErrorType() = scope["LmxError"];
  ErrorType().attr("__module__") = "lmxcore";
  module.attr("LmxError") = ErrorType();
}

}  // namespace lmxpy
