# The library mox_toc: reading a disc's TOC (offsets, CUE sheets, images,
# drives) for every subcommand that takes a disc, the tests, and the fuzz
# target of the sheet readers (whose build has no CLI). Included once per
# build, from tools/mox or from fuzz.
find_package(PkgConfig REQUIRED)
find_package(CLI11 CONFIG REQUIRED)
pkg_check_modules(LIBCDIO REQUIRED IMPORTED_TARGET GLOBAL libcdio)
pkg_check_modules(LIBDISCID REQUIRED IMPORTED_TARGET GLOBAL libdiscid)
pkg_check_modules(LIBCUE REQUIRED IMPORTED_TARGET GLOBAL libcue)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET GLOBAL sndfile)
# Terminal cells and grapheme clusters of the texts the tools print.
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET GLOBAL libutf8proc)
set(MOX_TOC_DIR ${CMAKE_CURRENT_LIST_DIR})
# The disc IDs (libdiscid) on their own, for the phone simulator too, which
# looks a disc up online by them.
add_library(mox_discids STATIC ${MOX_TOC_DIR}/DiscIds.cpp)
target_include_directories(mox_discids PUBLIC ${MOX_TOC_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(mox_discids PRIVATE PkgConfig::LIBDISCID)
mox_project_options(mox_discids)
add_library(mox_toc STATIC
  ${MOX_TOC_DIR}/CdioReader.cpp
  ${MOX_TOC_DIR}/CueSheetReader.cpp
  ${MOX_TOC_DIR}/DiscLayout.cpp
  ${MOX_TOC_DIR}/SheetText.cpp
  ${MOX_TOC_DIR}/StderrCapture.cpp
  ${MOX_TOC_DIR}/TextEscape.cpp
  ${MOX_TOC_DIR}/TocInput.cpp
  ${MOX_TOC_DIR}/TocSource.cpp
  ${MOX_TOC_DIR}/TocSourceOptions.cpp)
target_include_directories(mox_toc PUBLIC ${MOX_TOC_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(mox_toc
  PUBLIC moxdbwriter mox_discids CLI11::CLI11
  PRIVATE PkgConfig::LIBCDIO PkgConfig::LIBDISCID PkgConfig::LIBCUE PkgConfig::SNDFILE
          PkgConfig::UTF8PROC)
mox_project_options(mox_toc)
