// The Python module lmxcore: liblmxcore from Python, frames as NumPy arrays.
#include <pybind11/pybind11.h>

#include "errors.h"
#include "image.h"

namespace lmxpy {
void RegisterAudio(py::module_& module);
void RegisterScheduler(py::module_& module);
}  // namespace lmxpy

PYBIND11_MODULE(lmxcore, module) {
  module.doc() =
      "liblmxcore from Python: images whose planes are NumPy arrays without a copy, the audio\n"
      "converter and the task scheduler. The library is loaded through its export table, from\n"
      "LMXCORE_LIBRARY if set, else from the installation or the build tree.";
  lmxpy::RegisterErrors(module);
  lmxpy::RegisterImages(module);
  lmxpy::RegisterAudio(module);
  lmxpy::RegisterScheduler(module);
  module.attr("__version__") = LMX_PY_VERSION;
}
