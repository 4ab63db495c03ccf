# Manual pages of the tools, written at build time by help2man from each
# program's own --help and --version (cmake/MoxManPageRun.cmake), so that they
# never drift from the programs. tools/man/<page>.h2m.in adds what --help does
# not say (exit status, environment, files); a page needs no such file.
#
#   mox_add_man_pages(TARGET [SUBCOMMANDS] [DESCRIPTION text] [VERSION_STRING text]
#                     [LIST_SECTION title LIST_OPTION option] [SEE_ALSO page...])
#
# The pages go to <build>/man/<program>/ and are installed, compressed, with
# the tools. Cross builds run no tool at build time and get no pages.
find_program(MOX_HELP2MAN help2man)
find_program(MOX_GZIP gzip)
if(CMAKE_CROSSCOMPILING)
  set(MOX_MAN_PAGES OFF)
elseif(NOT MOX_HELP2MAN OR NOT MOX_GZIP)
  message(STATUS "help2man or gzip not found: the manual pages are not built")
  set(MOX_MAN_PAGES OFF)
else()
  set(MOX_MAN_PAGES ON)
endif()

# Paths in a page: never hyphenated (\%), and a line may break after any
# slash (\:), so that a long path still fits the width without a warning.
function(mox_man_path out_var path)
  string(REPLACE "/" "/\\:" path "${path}")
  set(${out_var} "\\%${path}" PARENT_SCOPE)
endfunction()
mox_man_path(MOX_MAN_CATALOGDIR "${CMAKE_INSTALL_PREFIX}/${MOX_INSTALL_CATALOGDIR}")
mox_man_path(MOX_MAN_DOCDIR "${CMAKE_INSTALL_FULL_DOCDIR}")
file(GLOB _mox_man_includes CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/man/*.h2m.in)
foreach(_mox_include IN LISTS _mox_man_includes)
  get_filename_component(_mox_include_name "${_mox_include}" NAME_WLE)
  configure_file("${_mox_include}" "${PROJECT_BINARY_DIR}/man-include/${_mox_include_name}" @ONLY)
endforeach()

function(mox_add_man_pages target)
  if(NOT MOX_MAN_PAGES)
    return()
  endif()
  cmake_parse_arguments(ARG "SUBCOMMANDS" "DESCRIPTION;VERSION_STRING;LIST_SECTION;LIST_OPTION"
                        "SEE_ALSO" ${ARGN})
  get_target_property(program ${target} OUTPUT_NAME)
  set(out_dir "${PROJECT_BINARY_DIR}/man/${program}")
  set(stamp "${PROJECT_BINARY_DIR}/man/${program}.stamp")
  set(defines
    -DPROGRAM=$<TARGET_FILE:${target}> -DOUT_DIR=${out_dir}
    -DINCLUDE_DIR=${PROJECT_BINARY_DIR}/man-include
    -DHELP2MAN=${MOX_HELP2MAN} -DGZIP=${MOX_GZIP} -DSTAMP=${stamp})
  if(ARG_SUBCOMMANDS)
    list(APPEND defines -DSUBCOMMANDS=ON)
  endif()
  foreach(value DESCRIPTION VERSION_STRING LIST_SECTION LIST_OPTION)
    if(DEFINED ARG_${value})
      list(APPEND defines "-D${value}=${ARG_${value}}")
    endif()
  endforeach()
  if(ARG_SEE_ALSO)
    list(JOIN ARG_SEE_ALSO "," see_also)
    list(APPEND defines "-DSEE_ALSO=${see_also}")
  endif()
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} ${defines} -P ${PROJECT_SOURCE_DIR}/cmake/MoxManPageRun.cmake
    DEPENDS ${target} ${PROJECT_SOURCE_DIR}/cmake/MoxManPageRun.cmake ${_mox_man_includes}
    COMMENT "Writing the manual pages of ${program}"
    VERBATIM)
  add_custom_target(${target}_man ALL DEPENDS ${stamp})
  install(DIRECTORY ${out_dir}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools
          FILES_MATCHING PATTERN "*.1.gz")
endfunction()
