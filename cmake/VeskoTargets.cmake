# How every target of this project is made: from all sources of its folder, with our warnings and sanitizers.
include(VeskoWarnings)
include(VeskoSanitizers)

# Sets `result` to the sources in the current folder or in `folder` below it.
function(vesko_sources result)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${ARGN}/*.cpp")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# A static library of the sources in the current folder, or in `folder` below it; usable without any source.
function(vesko_add_library name)
  vesko_sources(sources ${ARGN})
  if(NOT sources)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${PROJECT_SOURCE_DIR}")
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE vesko_warnings vesko_sanitizers)
endfunction()

# Links libraries whose headers the users of `name` see as well.
function(vesko_link name)
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    target_link_libraries(${name} INTERFACE ${ARGN})
  else()
    target_link_libraries(${name} PUBLIC ${ARGN})
  endif()
endfunction()

# A program of the sources in the current folder, or in `folder` below it; left out without any source.
function(vesko_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "LINK")
  vesko_sources(sources ${arg_FOLDER})
  if(NOT sources)
    message(STATUS "${name}: no sources yet")
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} vesko_warnings vesko_sanitizers)
endfunction()
