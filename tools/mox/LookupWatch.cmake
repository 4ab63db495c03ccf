# The library mox_lookup_watch: the result states by name (ResultState), the
# one rule for when a lookup has ended (LookupWatch) and the failures it
# reports (LookupFailure), for the mox CLI, the phone simulator's fault table
# and the benchmarks (whose build may have no CLI). Included once per build,
# from tools or from bench.
find_package(nlohmann_json CONFIG REQUIRED)
set(MOX_LOOKUP_WATCH_DIR ${CMAKE_CURRENT_LIST_DIR})
add_library(mox_lookup_watch STATIC
  ${MOX_LOOKUP_WATCH_DIR}/LookupFailure.cpp
  ${MOX_LOOKUP_WATCH_DIR}/LookupWatch.cpp
  ${MOX_LOOKUP_WATCH_DIR}/ResultState.cpp)
target_include_directories(mox_lookup_watch PUBLIC ${MOX_LOOKUP_WATCH_DIR})
target_link_libraries(mox_lookup_watch PUBLIC mox_platform nlohmann_json::nlohmann_json)
mox_project_options(mox_lookup_watch)
