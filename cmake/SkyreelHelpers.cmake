# One place for what every target shares: warnings, sanitizers, include root, ccache.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_library(skyreel_options INTERFACE)
target_include_directories(skyreel_options INTERFACE "${CMAKE_SOURCE_DIR}/src")
target_compile_options(skyreel_options INTERFACE -Wall -Wextra -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees an overlap in every optimised literal + std::string (its bug 105651).
  target_compile_options(skyreel_options INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
if(SKYREEL_SANITIZE)
  # A finding ends the program, so that no test passes over one.
  target_compile_options(skyreel_options INTERFACE -fsanitize=${SKYREEL_SANITIZE} -fno-sanitize-recover=all
                         -fno-omit-frame-pointer)
  target_link_options(skyreel_options INTERFACE -fsanitize=${SKYREEL_SANITIZE})
endif()
if(SKYREEL_FUZZ)
  # Coverage in every library, main only in the fuzz targets.
  target_compile_options(skyreel_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# skyreel_uses_regex(<source>): GCC 12 warns inside std::regex under the sanitizers (its bug 105562).
function(skyreel_uses_regex source)
  if(SKYREEL_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS -Wno-maybe-uninitialized)
  endif()
endfunction()

# skyreel_library(<folder> SOURCES a.cpp b.cpp [LINK libs...])
# The library skyreel_<folder>, made of files of the current folder; with no sources, headers only.
function(skyreel_library folder)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  if(arg_SOURCES)
    add_library(skyreel_${folder} STATIC ${arg_SOURCES})
    target_link_libraries(skyreel_${folder} PUBLIC skyreel_options ${arg_LINK})
  else()
    add_library(skyreel_${folder} INTERFACE)
    target_link_libraries(skyreel_${folder} INTERFACE skyreel_options ${arg_LINK})
  endif()
endfunction()

# skyreel_test(<name> SOURCES a_test.cpp ... [LINK libs...] [TIMEOUT seconds] [ENVIRONMENT A=B ...])
# One GoogleTest executable, its cases registered with CTest one by one.
function(skyreel_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINK;ENVIRONMENT" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  if(SKYREEL_SANITIZE)
    math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 10")  # instrumented code is that slow
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE skyreel_options ${arg_LINK} GTest::gmock_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()
