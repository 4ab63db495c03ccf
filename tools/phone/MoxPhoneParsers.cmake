# The library moxphone_parsers: the readers of the online services' answers
# (MusicBrainz JSON, CDDB and xmcd) and the genre table, for the phone
# simulator, its tests and the fuzz targets (whose build has no tools).
# Included once per build, from tools/phone or from fuzz.
find_package(nlohmann_json CONFIG REQUIRED)
set(MOXPHONE_DIR ${CMAKE_CURRENT_LIST_DIR})
add_library(moxphone_parsers STATIC
  ${MOXPHONE_DIR}/src/CddbProtocol.cpp
  ${MOXPHONE_DIR}/src/GenreMap.cpp
  ${MOXPHONE_DIR}/src/MusicBrainzParser.cpp
  ${MOXPHONE_DIR}/src/OnlineText.cpp
  ${MOXPHONE_DIR}/src/XmcdParser.cpp)
target_include_directories(moxphone_parsers PUBLIC ${MOXPHONE_DIR}/include)
target_link_libraries(moxphone_parsers PUBLIC moxdbwriter PRIVATE nlohmann_json::nlohmann_json)
mox_project_options(moxphone_parsers)
