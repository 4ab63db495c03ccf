# Configures the project in a scratch directory as if one package were not
# installed (its CMake files are ignored) and checks that configure stops and
# names the package, instead of quietly leaving out what needs it.
#
#   cmake -DSOURCE_DIR=... -DWORK_DIR=... -DGENERATOR=... -DPACKAGE=CLI11
#         -DIGNORED_PATH=/usr/share/cmake/CLI11 -P ConfigureWithoutPackage.cmake
foreach(variable SOURCE_DIR WORK_DIR GENERATOR PACKAGE IGNORED_PATH)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "ConfigureWithoutPackage: ${variable} is not set")
  endif()
endforeach()

file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}" -G "${GENERATOR}"
          -DMOX_BUILD_TOOLS=ON "-DCMAKE_IGNORE_PATH=${IGNORED_PATH}"
  RESULT_VARIABLE result
  OUTPUT_VARIABLE output
  ERROR_VARIABLE output)
file(REMOVE_RECURSE "${WORK_DIR}")

if(result EQUAL 0)
  message(FATAL_ERROR "configure succeeded without ${PACKAGE}:\n${output}")
endif()
string(FIND "${output}" "\"${PACKAGE}\"" at)
if(at EQUAL -1)
  message(FATAL_ERROR "configure failed without naming ${PACKAGE}:\n${output}")
endif()
message(STATUS "configure without ${PACKAGE} stops and names it")
