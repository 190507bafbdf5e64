# `vesko_sanitizers` instruments what is linked with it; without VESKO_SANITIZE it is empty.
add_library(vesko_sanitizers INTERFACE)
if(VESKO_SANITIZE)
  target_compile_options(vesko_sanitizers INTERFACE -fsanitize=${VESKO_SANITIZE} -fno-sanitize-recover=all
                                                    -fno-omit-frame-pointer)
  target_link_options(vesko_sanitizers INTERFACE -fsanitize=${VESKO_SANITIZE})
  if(VESKO_SANITIZE MATCHES "undefined")
    # This one check opens a pipe to look at memory, and so reports falsely where a test uses up the descriptors.
    target_compile_options(vesko_sanitizers INTERFACE -fno-sanitize=vptr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code misleads the one warning; the other says that Asio's fences are not understood, but Asio has
    # locks beside them that are.
    target_compile_options(vesko_sanitizers INTERFACE -Wno-maybe-uninitialized -Wno-tsan)
  endif()
endif()

if(VESKO_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzzers need clang: -DCMAKE_CXX_COMPILER=clang++, or the preset \"fuzz\"")
  endif()
  # A fuzzer judges its inputs by the branches they take, in whatever source these are.
  string(APPEND CMAKE_CXX_FLAGS " -fsanitize=fuzzer-no-link")
endif()
