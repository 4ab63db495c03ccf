# Checks of the built module library, each a CTest test labelled with the
# check's name, chosen by the configure preset (MOX_CHECKS):
#   exports  the library exports only what src/libmox.map names
#   size     the stripped library stays within its size limit
#   sysroot  the cross build installs into a sysroot that the example builds against
#   target   the library is 32-bit ARM and names the head unit's result directory
# The logic of each lives in its script under scripts/, which also runs alone.
set(_mox_known_checks exports size sysroot target)
foreach(_mox_check IN LISTS MOX_CHECKS)
  if(NOT _mox_check IN_LIST _mox_known_checks)
    message(FATAL_ERROR "MOX_CHECKS: unknown check '${_mox_check}' (known: ${_mox_known_checks})")
  endif()
endforeach()

# mox_add_check(CHECK NAME SCRIPT [ARGS arg...] [ENVIRONMENT var=value...] [TIMEOUT s])
# Test Check.NAME runs scripts/SCRIPT with ARGS when MOX_CHECKS holds CHECK.
function(mox_add_check check name script)
  cmake_parse_arguments(ARG "" "TIMEOUT" "ARGS;ENVIRONMENT" ${ARGN})
  if(NOT check IN_LIST MOX_CHECKS)
    return()
  endif()
  add_test(NAME Check.${name} COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/${script} ${ARG_ARGS})
  set_tests_properties(Check.${name} PROPERTIES LABELS ${check})
  if(ARG_ENVIRONMENT)
    set_tests_properties(Check.${name} PROPERTIES ENVIRONMENT "${ARG_ENVIRONMENT}")
  endif()
  if(ARG_TIMEOUT)
    set_tests_properties(Check.${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  endif()
endfunction()

mox_add_check(exports Exports check-exports.sh
              ARGS $<TARGET_LINKER_FILE:mox> ${PROJECT_SOURCE_DIR}/src/libmox.map
              ENVIRONMENT NM=${CMAKE_NM})
mox_add_check(size LibrarySize check-lib-size.sh
              ARGS $<TARGET_LINKER_FILE:mox> ENVIRONMENT STRIP=${CMAKE_STRIP})
mox_add_check(sysroot Sysroot check-sysroot.sh ARGS ${PROJECT_BINARY_DIR} TIMEOUT 600)
mox_add_check(target TargetLibrary check-target-lib.sh
              ARGS $<TARGET_LINKER_FILE:mox> ENVIRONMENT READELF=${CMAKE_READELF})
