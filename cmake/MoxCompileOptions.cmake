# Warnings are errors on the project's own code; third-party code (GoogleTest)
# is built with its own flags.
function(mox_project_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# Sanitizer selection for the asan / tsan presets.
set(MOX_SANITIZE "" CACHE STRING "Sanitizers: empty, 'address;undefined' or 'thread'")
if(MOX_SANITIZE)
  string(REPLACE ";" "," _mox_san "${MOX_SANITIZE}")
  add_compile_options(-fsanitize=${_mox_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_mox_san})
endif()
