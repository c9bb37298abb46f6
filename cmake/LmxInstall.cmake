# Installation: the library module, the public headers, the host kit, lmxtool, a
# CMake package (find_package(lmxcore CONFIG)) and pkg-config files. Hosts compile
# against the headers and load the module at run time, so the package carries the
# module's installed path rather than a link library; the host kit is the one
# library a host links (lmxcore::host, pkg-config lmxcore-host).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(WIN32)
  set(LMX_INSTALL_MODULE_DIR ${CMAKE_INSTALL_BINDIR})
else()
  set(LMX_INSTALL_MODULE_DIR ${CMAKE_INSTALL_LIBDIR})
endif()
set(LMX_INSTALL_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/lmxcore)
set(LMX_INSTALL_MODULE ${LMX_INSTALL_MODULE_DIR}/liblmxcore${CMAKE_SHARED_LIBRARY_SUFFIX})
set(LMX_INSTALL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/lmxcore)
set(LMX_INSTALL_HOST_LIB ${CMAKE_INSTALL_LIBDIR}/${CMAKE_STATIC_LIBRARY_PREFIX}lmxhost${CMAKE_STATIC_LIBRARY_SUFFIX})

install(TARGETS liblmxcore LIBRARY DESTINATION ${LMX_INSTALL_MODULE_DIR} RUNTIME DESTINATION ${LMX_INSTALL_MODULE_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${LMX_INSTALL_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS lmx_host ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/host/module_host.h ${PROJECT_SOURCE_DIR}/host/host_session.h
  ${PROJECT_SOURCE_DIR}/host/host_ref.h DESTINATION ${LMX_INSTALL_INCLUDE_DIR})
if(TARGET lmxtool)
  install(TARGETS lmxtool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/lmxcoreConfig.cmake.in
  ${CMAKE_BINARY_DIR}/lmxcoreConfig.cmake
  INSTALL_DESTINATION ${LMX_INSTALL_CMAKE_DIR}
  PATH_VARS LMX_INSTALL_INCLUDE_DIR LMX_INSTALL_MODULE LMX_INSTALL_HOST_LIB)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/lmxcoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/lmxcoreConfig.cmake ${CMAKE_BINARY_DIR}/lmxcoreConfigVersion.cmake
  DESTINATION ${LMX_INSTALL_CMAKE_DIR})

# The .pc file finds its prefix from its own place, so a staged install works too.
file(RELATIVE_PATH LMX_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" LMX_PC_TO_PREFIX "${LMX_PC_TO_PREFIX}")
set(LMX_PC_LIBS "")
if(CMAKE_DL_LIBS)
  set(LMX_PC_LIBS "-l${CMAKE_DL_LIBS}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/lmxcore.pc.in ${CMAKE_BINARY_DIR}/lmxcore.pc @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/lmxcore-host.pc.in ${CMAKE_BINARY_DIR}/lmxcore-host.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/lmxcore.pc ${CMAKE_BINARY_DIR}/lmxcore-host.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The logging module beside the library (where the logging bootstrap looks), its
# default properties file and, on POSIX, the installation's registry file naming
# that file, written with the real prefix (the registry back end finds it from the
# library's folder: <libdir>/../etc/lmsdk/lmsdk.reg).
if(TARGET liblmxlog)
  set(LMX_INSTALL_CONFIG_DIR ${CMAKE_INSTALL_SYSCONFDIR}/lmsdk)
  install(TARGETS liblmxlog LIBRARY DESTINATION ${LMX_INSTALL_MODULE_DIR} RUNTIME DESTINATION ${LMX_INSTALL_MODULE_DIR})
  install(FILES ${PROJECT_SOURCE_DIR}/logging_module/lmxlog.properties DESTINATION ${LMX_INSTALL_CONFIG_DIR})
  if(NOT WIN32)
    install(CODE "set(LMX_INSTALL_CONFIG_DIR \"${LMX_INSTALL_CONFIG_DIR}\")")
    install(SCRIPT ${PROJECT_SOURCE_DIR}/logging_module/write_registry.cmake)
  endif()
endif()
