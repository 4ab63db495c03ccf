# Debian packages of the install components (cmake/MoxInstall.cmake):
#
#   libmox0     runtime      the shared libraries
#   libmox-dev  development  headers, .so links, CMake package, pkg-config files, example
#   mox-tools   tools        mox, mox-phone, mox-sampledb, manual pages, catalogue, docs
#
# built with `cpack --preset package` from the `package` preset (prefix /usr).
# dpkg-shlibdeps finds the Debian packages the binaries need; libmox0 comes
# from this build, so the other two depend on its exact version.
set(CPACK_PACKAGE_NAME mox)
set(CPACK_PACKAGE_VENDOR "mox developers")
set(CPACK_PACKAGE_CONTACT "mox developers <mox@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
# The prefix the build was configured for: the paths compiled into the
# programs and written in the manual pages are under it.
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Each package's description: the first line is its summary.
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libmox0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Music-information module of the in-car infotainment stack
libmox.so.0 looks an audio CD up by its table of contents through a phone
application and returns the candidate albums, best first. The package holds
the module and the host edition of the platform it runs on: the
application framework (libhbframework.so.0) and the phone link
(libostlinkapp.so.0).")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmox-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "Music-information module of the in-car infotainment stack - development files
The public headers (HbSMox.h, HbSMoxDef.h and the framework templates they
use, under /usr/include/mox), the host platform's headers, the CMake package
(find_package(mox) gives mox::mox), the pkg-config files mox.pc and
mox-platform.pc, and an example program.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME mox-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
  "Music-information module of the in-car infotainment stack - tools
mox runs the module on a PC: it looks a disc up through the module and a
phone (the built-in simulator, mox-phone or a real phone), renders and
searches response databases and reads a disc's table of contents from
offsets, CUE sheets, images or a drive. mox-phone simulates the phone application, with a sample catalogue
and faults on demand; mox-sampledb writes a sample response database.")

# dpkg-shlibdeps must find the libraries of libmox0 while the other packages
# are made, before any of them is installed: in libmox0's staging directory,
# whose path CPack knows only when it runs.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/cmake-package/MoxCPackOptions.cmake)
file(WRITE ${CPACK_PROJECT_CONFIG_FILE}
  "set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
     \"\${CPACK_PACKAGE_DIRECTORY}/_CPack_Packages/\${CPACK_TOPLEVEL_TAG}/\${CPACK_GENERATOR}/\${CPACK_PACKAGE_FILE_NAME}/runtime\${CPACK_PACKAGING_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")\n")

include(CPack)
