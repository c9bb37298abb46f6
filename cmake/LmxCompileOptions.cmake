# Project-wide compile settings, applied to every target through lmx_options.
add_library(lmx_options INTERFACE)
target_compile_options(lmx_options INTERFACE
  -Wall -Wextra
  # Log lines carry repository-relative source paths (liblmxcore/src/...).
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
# A compiler cache with a base directory (CCACHE_BASEDIR) hands the compiler the
# source path relative to the target's build folder (../../../liblmxcore/...):
# strip those prefixes too. The compiler tries the last-given map first, so the
# deeper prefixes come last.
if(CCACHE_PROGRAM)
  foreach(prefix ../../ ../../../ ../../../../ ../../../../../)
    target_compile_options(lmx_options INTERFACE -fmacro-prefix-map=${prefix}=)
  endforeach()
endif()
target_compile_features(lmx_options INTERFACE cxx_std_20)

set(LMX_SANITIZE "" CACHE STRING "Sanitizers: address, thread or empty")
if(LMX_SANITIZE STREQUAL "address")
  target_compile_options(lmx_options INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(lmx_options INTERFACE -fsanitize=address,undefined)
elseif(LMX_SANITIZE STREQUAL "thread")
  target_compile_options(lmx_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(lmx_options INTERFACE -fsanitize=thread)
endif()
