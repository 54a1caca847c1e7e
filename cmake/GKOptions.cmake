# Compiler settings of every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(GK_CCACHE ccache)
if(GK_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${GK_CCACHE})
endif()

find_package(Threads REQUIRED)

add_library(gk_options INTERFACE)
target_include_directories(gk_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(
  gk_options
  INTERFACE
    -Wall
    -Wextra
    -Wpedantic
    -Wconversion
    -Wshadow
    -Werror
    # Single precision means single precision: no fused multiply-add.
    -ffp-contract=off
    # Paths in messages are those of the repository.
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_link_libraries(gk_options INTERFACE Threads::Threads)

# GK_SANITIZE: what -fsanitize= takes, empty for none.
set(GK_SANITIZE "" CACHE STRING "Sanitizers, as in -fsanitize=")
if(GK_SANITIZE)
  # The checks that sanitizers put in lead gcc to warn of values that are never used uninitialised.
  target_compile_options(
    gk_options INTERFACE -fsanitize=${GK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(gk_options INTERFACE -fsanitize=${GK_SANITIZE})
endif()
