# CTest driver (tests/lifecycle): installs the build tree to a staging prefix, so that the library
# configures the logging module from the installation's registry file (with its
# file watch), then starts hosts of it and requires each to exit within 2 s:
# C++ hosts with and without oneTBB, with and without unloading the module, and
# the Python module.
#   -DBUILD_DIR=<build tree> -DHOSTS=<host programs> [-DPYTHON=<interpreter>]
set(work ${BUILD_DIR}/exit-test)
set(stage ${work}/stage)
file(REMOVE_RECURSE ${work})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${stage} OUTPUT_QUIET RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed (${result})")
endif()
file(GLOB module ${stage}/lib*/liblmxcore.so)
file(GLOB python_module ${stage}/lib*/python3*/*-packages/lmxcore*.so)

set(cases "")
foreach(host IN LISTS HOSTS)
  list(APPEND cases "${host}|${module}" "${host}|${module}|--dlclose")
endforeach()
if(PYTHON AND python_module)
  get_filename_component(site ${python_module} DIRECTORY)
  file(WRITE ${work}/host.py "import lmxcore\nkey = object()\nscheduler = lmxcore.Scheduler()\n"
       "scheduler.submit(lambda: None, outputs=[key]).wait(2)\nscheduler.close()\n")
  list(APPEND cases "${PYTHON}|${work}/host.py")
endif()

# The installation's registry file must be the one read, and the log goes to the work folder.
set(env ${CMAKE_COMMAND} -E env --unset=LMSDK_REGISTRY --unset=LMSDK_LOG_DIR XDG_STATE_HOME=${work}/state
    PYTHONPATH=${site})
set(failures "")
foreach(case IN LISTS cases)
  string(REPLACE "|" ";" command "${case}")
  string(TIMESTAMP start "%s%f")
  execute_process(COMMAND ${env} ${command} TIMEOUT 2 RESULT_VARIABLE result ERROR_VARIABLE err)
  string(TIMESTAMP end "%s%f")
  math(EXPR ms "(${end} - ${start}) / 1000")
  message("${result} after ${ms} ms: ${command}")
  if(NOT result STREQUAL "0")
    list(APPEND failures "${command}: ${result}\n${err}")
  endif()
endforeach()
if(NOT EXISTS ${stage}/etc/lmsdk/lmsdk.reg)
  list(APPEND failures "no registry file installed: the logging module was not exercised")
endif()
if(failures)
  message(FATAL_ERROR "hosts that did not exit cleanly within 2 s:\n${failures}")
endif()
