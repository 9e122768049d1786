# What every target has in common: language level, warnings, sanitizers, ccache, output folders.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# The tool of the release build lies at build/bin; other builds keep theirs beside them.
set(TESSARINE_BIN_DIR "${CMAKE_BINARY_DIR}/bin")
if(CMAKE_BINARY_DIR STREQUAL "${CMAKE_SOURCE_DIR}/build/release")
  set(TESSARINE_BIN_DIR "${CMAKE_SOURCE_DIR}/build/bin")
endif()

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Precompiled headers carry time stamps and macros that ccache has to be told to trust.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE})
endif()

add_library(tessarine_conventions INTERFACE)
target_compile_options(tessarine_conventions INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
  $<$<BOOL:${TESSARINE_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wreserved-identifier -Wno-missing-field-initializers -fpch-instantiate-templates>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-missing-field-initializers -fpch-preprocess>)
if(TESSARINE_SANITIZE)
  target_compile_options(tessarine_conventions INTERFACE
    -fsanitize=${TESSARINE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
    # Clang 14 cannot assemble what this one check adds to a coroutine.
    $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
  target_link_options(tessarine_conventions INTERFACE -fsanitize=${TESSARINE_SANITIZE})
endif()
