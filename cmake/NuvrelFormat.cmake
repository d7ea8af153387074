# 'format' rewrites the sources with clang-format; 'format-check' fails on any difference.
include_guard(GLOBAL)
find_program(NUVREL_CLANG_FORMAT NAMES clang-format clang-format-14)
if(NOT NUVREL_CLANG_FORMAT)
  return()
endif()
file(GLOB_RECURSE _nuvrel_format_sources CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/src/*.cpp ${PROJECT_SOURCE_DIR}/src/*.h
  ${PROJECT_SOURCE_DIR}/tests/*.cpp ${PROJECT_SOURCE_DIR}/tests/*.h
  ${PROJECT_SOURCE_DIR}/bench/*.cpp ${PROJECT_SOURCE_DIR}/tools/*.cpp ${PROJECT_SOURCE_DIR}/tools/*.h)
add_custom_target(format COMMAND ${NUVREL_CLANG_FORMAT} -i ${_nuvrel_format_sources}
  COMMENT "Formatting the sources" VERBATIM)
add_custom_target(format-check COMMAND ${NUVREL_CLANG_FORMAT} --dry-run -Werror ${_nuvrel_format_sources}
  COMMENT "Checking the formatting" VERBATIM)

# 'tidy' runs clang-tidy over the project's own sources with the compile commands of this build.
find_program(NUVREL_RUN_CLANG_TIDY NAMES run-clang-tidy run-clang-tidy-14)
if(NUVREL_RUN_CLANG_TIDY)
  add_custom_target(tidy
    COMMAND ${NUVREL_RUN_CLANG_TIDY} -quiet -p ${PROJECT_BINARY_DIR} "${PROJECT_SOURCE_DIR}/(src|tools|bench)/.*\\.cpp$"
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} COMMENT "Running clang-tidy" VERBATIM)
endif()
