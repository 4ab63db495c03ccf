# GoogleTest is built from Debian's source package so that every preset,
# including the armhf cross build and the sanitizer builds, gets a matching copy.
set(MOX_GTEST_SOURCE_DIR "/usr/src/googletest" CACHE PATH "GoogleTest sources")
if(NOT EXISTS "${MOX_GTEST_SOURCE_DIR}/CMakeLists.txt")
  message(FATAL_ERROR "GoogleTest sources not found in ${MOX_GTEST_SOURCE_DIR} "
                      "(Debian package 'googletest')")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${MOX_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)

# mox_add_test(NAME SOURCES src... [LIBS lib...] [PROPERTIES name value...])
# One executable per test file. Every test case runs in its own process, and
# the whole executable runs once more in one process (test NAME.WholeBinary,
# label "whole"), which proves that each fixture leaves nothing armed or
# registered behind. A test that truly needs a fresh process says so with
# "FreshProcess" in its name; the whole run leaves it out. PROPERTIES are
# CTest properties of each test case.
function(mox_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;PROPERTIES" ${ARGN})
  # Each test process keeps the module's result directory in a folder of its
  # own (tests/support/TestResultDir.cpp), so tests run in parallel.
  add_executable(${name} ${ARG_SOURCES} $<TARGET_OBJECTS:mox_test_result_dir>)
  mox_project_options(${name})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} mox_test_support GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE MOX_TEST_TMP_DIR="${CMAKE_BINARY_DIR}/testtmp")
  # Under an emulator (qemu-arm), /proc/self tells the emulator's memory,
  # translated code included, not the program's.
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    target_compile_definitions(${name} PRIVATE MOX_TEST_UNDER_EMULATOR=1)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       PROPERTIES TIMEOUT 120 ${ARG_PROPERTIES})
  add_test(NAME ${name}.WholeBinary COMMAND ${name} --gtest_filter=-*FreshProcess*)
  set_tests_properties(${name}.WholeBinary PROPERTIES LABELS whole TIMEOUT 600)
endfunction()
