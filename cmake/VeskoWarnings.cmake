# Usage requirements that only our own targets get: `vesko_warnings` is linked PRIVATE everywhere.
add_library(vesko_warnings INTERFACE)
target_compile_options(vesko_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(VESKO_WARNINGS_AS_ERRORS)
  target_compile_options(vesko_warnings INTERFACE -Werror)
endif()
