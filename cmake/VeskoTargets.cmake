# How every target of this project is made: from all sources below its folder, with our warnings and sanitizers.
include(VeskoWarnings)
include(VeskoSanitizers)

# Sets `result` to the sources below the current folder or below `folder` in it.
function(vesko_sources result)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${ARGN}/*.cpp")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# A static library of the sources below the current folder, or below `folder` in it.
function(vesko_add_library name)
  vesko_sources(sources ${ARGN})
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE vesko_warnings vesko_sanitizers)
endfunction()

# A program of the sources below the current folder, or below `folder` in it.
function(vesko_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "LINK")
  vesko_sources(sources ${arg_FOLDER})
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} vesko_warnings vesko_sanitizers)
endfunction()
