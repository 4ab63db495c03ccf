# Writes the manual pages of one program with help2man, from the program's
# own --help and --version (run at build time: cmake -P this file).
#
#   PROGRAM        the built program
#   OUT_DIR        emptied, then receives PAGE.1 and PAGE.1.gz per page
#   INCLUDE_DIR    configured include files: <page>.h2m, added when present
#   HELP2MAN, GZIP the tools
#   DESCRIPTION    the NAME line; default: the text after "<program> - " on
#                  the first line of --help
#   VERSION_STRING "<program> <version>" for a program without --version
#   SEE_ALSO       pages named under SEE ALSO, separated by commas
#   SUBCOMMANDS    ON: one more page per subcommand listed under
#                  "Subcommands:" in --help, named <program>-<subcommand>
#   LIST_SECTION, LIST_OPTION
#                  a section made of the output of `PROGRAM LIST_OPTION`: an
#                  unindented line names an entry, indented lines describe it
#   STAMP          touched when every page is written
cmake_minimum_required(VERSION 3.25)

foreach(required PROGRAM OUT_DIR INCLUDE_DIR HELP2MAN GZIP STAMP)
  if(NOT DEFINED ${required})
    message(FATAL_ERROR "MoxManPageRun: ${required} is not set")
  endif()
endforeach()

get_filename_component(program_dir "${PROGRAM}" DIRECTORY)
get_filename_component(program_name "${PROGRAM}" NAME)
# The program runs by its bare name, so that its usage lines name it as a
# user types it; the locale keeps the date English and the output stable.
set(run_env ${CMAKE_COMMAND} -E env "PATH=${program_dir}:$ENV{PATH}" LC_ALL=C.UTF-8)

function(run_program out_var)
  execute_process(COMMAND ${run_env} ${program_name} ${ARGN}
    OUTPUT_VARIABLE output ERROR_VARIABLE error RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${program_name} ${ARGN} failed (${status}): ${error}")
  endif()
  set(${out_var} "${output}" PARENT_SCOPE)
endfunction()

# roff: a backslash is written \e, a line may not start with a control
# character, and a hyphen that a user types is \-.
function(roff_text out_var text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "^([.'])" "\\\\&\\1" text "${text}")
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

function(roff_name out_var text)
  roff_text(text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

# The first clause of a description, as a NAME line: "Render a response
# database: header, ..." gives "render a response database".
function(short_description out_var text)
  string(REGEX REPLACE "(: |\\. ).*$" "" text "${text}")
  string(REGEX REPLACE "\\.$" "" text "${text}")
  if(text MATCHES "^[A-Z][a-z]")
    string(SUBSTRING "${text}" 0 1 first)
    string(SUBSTRING "${text}" 1 -1 rest)
    string(TOLOWER "${first}" first)
    set(text "${first}${rest}")
  endif()
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

# Subcommands listed by --help: "  NAME   description" lines after
# "Subcommands:", up to the next blank line.
function(parse_subcommands names_var descriptions_var help)
  string(REPLACE ";" "\\;" help "${help}")
  string(REPLACE "\n" ";" lines "${help}")
  set(in_list FALSE)
  set(names)
  set(descriptions)
  foreach(line IN LISTS lines)
    if(line STREQUAL "Subcommands:")
      set(in_list TRUE)
    elseif(in_list AND line MATCHES "^  ([a-z][a-z0-9-]*)  +(.*)$")
      list(APPEND names "${CMAKE_MATCH_1}")
      short_description(description "${CMAKE_MATCH_2}")
      string(REPLACE ";" "," description "${description}")
      list(APPEND descriptions "${description}")
    elseif(in_list AND line STREQUAL "")
      break()
    endif()
  endforeach()
  set(${names_var} "${names}" PARENT_SCOPE)
  set(${descriptions_var} "${descriptions}" PARENT_SCOPE)
endfunction()

# A section of .TP entries from an indented listing.
function(list_section out_var title listing)
  string(REPLACE ";" "\\;" listing "${listing}")
  string(REPLACE "\n" ";" lines "${listing}")
  set(section "[${title}]\n")
  set(first_line FALSE)
  foreach(line IN LISTS lines)
    if(line MATCHES "^[ \t]+(.*)$")
      roff_text(text "${CMAKE_MATCH_1}")
      if(NOT first_line)
        string(APPEND section ".br\n")
      endif()
      string(APPEND section "${text}\n")
      set(first_line FALSE)
    elseif(NOT line STREQUAL "")
      roff_name(tag "${line}")
      string(APPEND section ".TP\n.B ${tag}\n")
      set(first_line TRUE)
    endif()
  endforeach()
  set(${out_var} "${section}" PARENT_SCOPE)
endfunction()

function(see_also out_var pages)
  set(lines)
  foreach(page IN LISTS pages)
    roff_name(name "${page}")
    list(APPEND lines ".BR ${name} (1)")
  endforeach()
  list(JOIN lines ",\n" text)
  set(${out_var} "[SEE ALSO]\n${text}\n" PARENT_SCOPE)
endfunction()

# One page: help2man with the generated sections and the page's include file
# (if any; its text follows the generated text of a section they share), then
# a compressed copy for installation.
function(write_page page description version help_option generated)
  set(include_file "${OUT_DIR}/${page}.h2m")
  set(text "")
  if(EXISTS "${INCLUDE_DIR}/${page}.h2m")
    # Without its opening remarks (the text before the first section).
    file(READ "${INCLUDE_DIR}/${page}.h2m" text)
    string(FIND "${text}" "\n[" first_section)
    if(first_section LESS 0)
      message(FATAL_ERROR "${INCLUDE_DIR}/${page}.h2m has no [SECTION]")
    endif()
    math(EXPR first_section "${first_section} + 1")
    string(SUBSTRING "${text}" ${first_section} -1 text)
  endif()
  file(WRITE "${include_file}" "${generated}${text}")
  set(args --no-info "--name=${description}" "--version-string=${version}"
           "--include=${include_file}" "--output=${OUT_DIR}/${page}.1")
  if(help_option)
    list(APPEND args "--help-option=${help_option}")
  endif()
  execute_process(COMMAND ${run_env} ${HELP2MAN} ${args} ${program_name}
    ERROR_VARIABLE error RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT error STREQUAL "")
    message(FATAL_ERROR "help2man for ${page} failed (${status}): ${error}")
  endif()
  file(REMOVE "${include_file}")
  execute_process(COMMAND ${GZIP} -9 -n -c "${OUT_DIR}/${page}.1"
    OUTPUT_FILE "${OUT_DIR}/${page}.1.gz" RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "gzip of ${page}.1 failed")
  endif()
endfunction()

file(REMOVE_RECURSE "${OUT_DIR}")
file(MAKE_DIRECTORY "${OUT_DIR}")

run_program(help --help)
if(DEFINED VERSION_STRING)
  set(version "${VERSION_STRING}")
else()
  run_program(version --version)
  string(REGEX REPLACE "\n.*$" "" version "${version}")
endif()
if(NOT version MATCHES "^${program_name} ([^ ]+)$")
  message(FATAL_ERROR "${program_name}: version '${version}' is not '${program_name} VERSION'")
endif()
set(version_number "${CMAKE_MATCH_1}")
if(NOT DEFINED DESCRIPTION)
  string(REGEX REPLACE "\n.*$" "" first_line "${help}")
  if(NOT first_line MATCHES "^${program_name} - (.+)$")
    message(FATAL_ERROR "${program_name}: no DESCRIPTION and no '${program_name} - ...' line")
  endif()
  set(DESCRIPTION "${CMAKE_MATCH_1}")
endif()

set(generated "")
if(DEFINED LIST_SECTION)
  run_program(listing ${LIST_OPTION})
  list_section(section "${LIST_SECTION}" "${listing}")
  string(APPEND generated "${section}")
endif()

set(subcommand_pages)
if(SUBCOMMANDS)
  parse_subcommands(names descriptions "${help}")
  if(NOT names)
    message(FATAL_ERROR "${program_name} --help lists no subcommand")
  endif()
  foreach(name description IN ZIP_LISTS names descriptions)
    set(page "${program_name}-${name}")
    list(APPEND subcommand_pages "${page}")
    see_also(section "${program_name}")
    write_page("${page}" "${description}" "${page} ${version_number}" "${name} --help"
               "${section}")
  endforeach()
endif()

set(related ${subcommand_pages})
if(DEFINED SEE_ALSO)
  string(REPLACE "," ";" see_also_pages "${SEE_ALSO}")
  list(APPEND related ${see_also_pages})
endif()
if(related)
  see_also(section "${related}")
  string(APPEND generated "${section}")
endif()
write_page("${program_name}" "${DESCRIPTION}" "${version}" "" "${generated}")
file(TOUCH "${STAMP}")
