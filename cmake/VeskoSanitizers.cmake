# `vesko_sanitizers` instruments what is linked with it; without VESKO_SANITIZE it is empty.
add_library(vesko_sanitizers INTERFACE)
if(VESKO_SANITIZE)
  target_compile_options(vesko_sanitizers INTERFACE -fsanitize=${VESKO_SANITIZE} -fno-sanitize-recover=all
                                                    -fno-omit-frame-pointer)
  target_link_options(vesko_sanitizers INTERFACE -fsanitize=${VESKO_SANITIZE})
  if(VESKO_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Asio's memory fences are not understood by the sanitizer; the locks beside them are.
    target_compile_options(vesko_sanitizers INTERFACE -Wno-tsan)
  endif()
endif()
