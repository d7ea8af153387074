# One INTERFACE target carries the settings every Nuvrel target shares; nothing is set globally.
include_guard(GLOBAL)

option(NUVREL_WERROR "Treat compiler warnings as errors" OFF)
option(NUVREL_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(NUVREL_FUZZ "Build the libFuzzer targets (needs clang)" OFF)

find_program(NUVREL_CCACHE ccache)
if(NUVREL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${NUVREL_CCACHE}")
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(nuvrel_common INTERFACE)
add_library(Nuvrel::common ALIAS nuvrel_common)
target_compile_features(nuvrel_common INTERFACE cxx_std_20)
target_compile_options(nuvrel_common INTERFACE -Wall -Wextra -Wpedantic -Wshadow $<$<BOOL:${NUVREL_WERROR}>:-Werror>)
target_compile_definitions(nuvrel_common INTERFACE
  QT_NO_CAST_FROM_ASCII
  QT_NO_CAST_TO_ASCII
  QT_NO_CAST_FROM_BYTEARRAY
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  QT_USE_QSTRINGBUILDER
  QT_NO_KEYWORDS
  QT_NO_FOREACH)

if(NUVREL_SANITIZE)
  set(_nuvrel_san -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(nuvrel_common INTERFACE ${_nuvrel_san})
  target_link_options(nuvrel_common INTERFACE ${_nuvrel_san})
endif()

if(NUVREL_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "NUVREL_FUZZ needs clang (configure with the 'fuzz' preset)")
  endif()
  # Every library is instrumented for coverage; only the fuzz executables link the libFuzzer driver.
  target_compile_options(nuvrel_common INTERFACE -fsanitize=fuzzer-no-link)
endif()
