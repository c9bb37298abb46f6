# CTest driver: stages an install of the build tree, then configures, builds and
# runs examples/host against it, checks the pkg-config file and runs the README's
# code blocks against the install.
#   -DBUILD_DIR=<build tree> -DSOURCE_DIR=<source tree> [-DEXAMPLE_FLAGS=<compile and link flags>]
set(stage ${BUILD_DIR}/install-test/stage)
set(example ${BUILD_DIR}/install-test/example)
file(REMOVE_RECURSE ${BUILD_DIR}/install-test)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${out}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGV}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${stage})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/host -B ${example} -DCMAKE_PREFIX_PATH=${stage}
    -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS=${EXAMPLE_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${EXAMPLE_FLAGS}")
run(${CMAKE_COMMAND} --build ${example})
run(${example}/lmxcore_host_example)

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc_files ${stage}/*/lmxcore.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  execute_process(COMMAND ${PKG_CONFIG} --variable=modulepath lmxcore OUTPUT_VARIABLE module
                  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
  if(NOT result EQUAL 0 OR NOT EXISTS "${module}")
    message(FATAL_ERROR "pkg-config's modulepath '${module}' is not the installed module")
  endif()
  # The README's C++ and shell blocks, against this install.
  run(bash ${SOURCE_DIR}/tests/tool/readme_snippets.sh ${SOURCE_DIR}/README.md ${stage} ${BUILD_DIR} "${EXAMPLE_FLAGS}")
endif()

# The installed lmxtool logs through the installed logging module with nothing set
# up by the user: the installation's own registry file names its properties file,
# whose INFO lines go to $LMSDK_LOG_DIR (here: under XDG_STATE_HOME).
if(EXISTS ${stage}/etc/lmsdk/lmsdk.reg AND EXISTS ${stage}/bin/lmxtool AND NOT EXISTS /etc/lmsdk/lmsdk.reg)
  set(state ${BUILD_DIR}/install-test/state)
  run(${CMAKE_COMMAND} -E env --unset=LMSDK_REGISTRY --unset=LMSDK_LOG_DIR --unset=NORVIK_LIBQTRNOTIFY64
      XDG_STATE_HOME=${state} ${stage}/bin/lmxtool demo --out ${BUILD_DIR}/install-test/demo-out)
  file(READ ${state}/lmsdk/lmsdk.log log)
  if(NOT log MATCHES "INFO  [^\n]* lmsdk\\.liblmxcore log_utils\\.cpp:[0-9]+ - Logger 'lmsdk\\.liblmxcore' created")
    message(FATAL_ERROR "the installed demo did not log to ${state}/lmsdk/lmsdk.log:\n${log}")
  endif()
endif()
