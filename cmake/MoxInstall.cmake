# Installation: `cmake --install` lays the module out as a system library, and
# cmake/MoxPackaging.cmake makes Debian packages of the same rules. Each file
# belongs to one of three components, one package each:
#
#   runtime      libmox.so.0 and the host platform's libraries
#   development  the headers (<includedir>/mox), the libraries' .so links, the
#                CMake package (<libdir>/cmake/mox), mox.pc and
#                mox-platform.pc, the example program's sources
#   tools        mox, mox-phone, mox-sampledb, their manual pages, the sample
#                catalogue and its schema, the documentation
#
# A cross build installs the runtime and development components the same way,
# into a target sysroot: cmake --install build/armhf --prefix <sysroot>/usr
include(CMakePackageConfigHelpers)

set(MOX_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/mox")
set(MOX_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

set(_mox_platform_targets hbframework mox_platform)
if(TARGET ostlinkapp)
  list(APPEND _mox_platform_targets ostlinkapp)
endif()
set(_mox_tool_targets)
if(MOX_BUILD_TOOLS)
  foreach(_mox_tool mox_cli mox_phone mox_sampledb)
    if(TARGET ${_mox_tool})
      list(APPEND _mox_tool_targets ${_mox_tool})
    endif()
  endforeach()
endif()

# Run paths relative to the installed files (MOX_INSTALL_RPATH).
if(MOX_INSTALL_RPATH)
  file(RELATIVE_PATH _mox_bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  set_target_properties(mox ${_mox_platform_targets} PROPERTIES INSTALL_RPATH "$ORIGIN")
  if(_mox_tool_targets)
    set_target_properties(${_mox_tool_targets} PROPERTIES INSTALL_RPATH "$ORIGIN/${_mox_bin_to_lib}")
  endif()
endif()

# ---- Libraries and the CMake package ----
# mox_platform (mox::platform) is exported apart from mox::mox, so that a
# project can bring its own; see cmake/moxConfig.cmake.in.
list(REMOVE_ITEM _mox_platform_targets mox_platform)
install(TARGETS mox_platform EXPORT moxPlatformTargets)
install(TARGETS ${_mox_platform_targets} EXPORT moxPlatformTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS mox EXPORT moxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT moxPlatformTargets NAMESPACE mox:: DESTINATION ${MOX_INSTALL_CMAKEDIR}
  COMPONENT development)
install(EXPORT moxTargets NAMESPACE mox:: DESTINATION ${MOX_INSTALL_CMAKEDIR}
  COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/moxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmake-package/moxConfig.cmake
  INSTALL_DESTINATION ${MOX_INSTALL_CMAKEDIR})
# The SONAME's number is the major version: a new major version is a new ABI.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake-package/moxConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/cmake-package/moxConfig.cmake
  ${PROJECT_BINARY_DIR}/cmake-package/moxConfigVersion.cmake
  DESTINATION ${MOX_INSTALL_CMAKEDIR} COMPONENT development)

# ---- Headers ----
# The module's public headers and the framework templates they use, then the
# host platform's headers (the framework and the phone link) beside them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${MOX_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/host/include/
  DESTINATION ${MOX_INSTALL_PLATFORM_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")

# ---- pkg-config ----
# The prefix is the one installed to, known only at install time (cmake
# --install --prefix, or the packages' /usr under DESTDIR): the files are
# completed then.
set(MOX_PC_PREFIX "@MOX_PC_PREFIX@")
set(MOX_PC_PLATFORM_LIBS "")
if(TARGET ostlinkapp)
  set(MOX_PC_PLATFORM_LIBS " -lostlinkapp")
endif()
foreach(_mox_pc mox mox-platform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${_mox_pc}.pc.in
    ${PROJECT_BINARY_DIR}/cmake-package/${_mox_pc}.pc.in @ONLY)
  install(CODE "
    set(_mox_pc_dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${MOX_INSTALL_PKGCONFIGDIR}\")
    file(READ \"${PROJECT_BINARY_DIR}/cmake-package/${_mox_pc}.pc.in\" _mox_pc_text)
    string(REPLACE \"@MOX_PC_PREFIX@\" \"\${CMAKE_INSTALL_PREFIX}\" _mox_pc_text \"\${_mox_pc_text}\")
    message(STATUS \"Installing: \${_mox_pc_dir}/${_mox_pc}.pc\")
    file(WRITE \"\${_mox_pc_dir}/${_mox_pc}.pc\" \"\${_mox_pc_text}\")
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${_mox_pc_dir}/${_mox_pc}.pc\")
    " COMPONENT development)
endforeach()

# ---- The example program, as an application's own project ----
install(FILES ${PROJECT_SOURCE_DIR}/examples/lookup.cpp ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

# ---- Tools, the sample catalogue, the documentation ----
if(_mox_tool_targets)
  install(TARGETS ${_mox_tool_targets} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(TARGET mox_phone AND MOX_BUILD_TOOLS)
  install(FILES ${MOXPHONE_CATALOG_DIR}/sample.json ${MOXPHONE_CATALOG_DIR}/catalog.schema.json
    DESTINATION ${MOX_INSTALL_CATALOGDIR} COMPONENT tools)
endif()
file(GLOB _mox_docs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${_mox_docs} DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT tools)
# The JSON Schemas of the tools' --json output.
file(GLOB _mox_schemas CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/schemas/*.schema.json)
install(FILES ${_mox_schemas} DESTINATION ${CMAKE_INSTALL_DOCDIR}/schemas COMPONENT tools)
