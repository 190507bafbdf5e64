# `cmake --build --preset tidy` runs clang-tidy over what we ship; it needs a build folder configured for clang.
find_program(VESKO_RUN_CLANG_TIDY NAMES run-clang-tidy run-clang-tidy-14)
mark_as_advanced(VESKO_RUN_CLANG_TIDY)
if(VESKO_RUN_CLANG_TIDY)
  include(ProcessorCount)
  ProcessorCount(processors)
  add_custom_target(
    tidy
    COMMAND "${VESKO_RUN_CLANG_TIDY}" -quiet -j ${processors} -p "${PROJECT_BINARY_DIR}"
            "^${PROJECT_SOURCE_DIR}/(Platform|VeskoKit|hosts)/"
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    USES_TERMINAL VERBATIM)
endif()
