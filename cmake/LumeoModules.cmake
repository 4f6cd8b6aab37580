# Helpers that every module folder uses to declare its library and its tests.

# lumeo_add_module(NAME SOURCES ... [LIBS ...] [CORE])
# Declares a static library whose headers are included as "folder/file.h"
# from src/. CORE adds it to lumeo-core.
function(lumeo_add_module name)
  cmake_parse_arguments(ARG "CORE" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  if(ARG_LIBS)
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
  endif()
  if(ARG_CORE)
    set_property(GLOBAL APPEND PROPERTY LUMEO_CORE_MODULES ${name})
  endif()
endfunction()

# lumeo_add_test_module(NAME SOURCES ... [LIBS ...] [TIMEOUT seconds])
# One GoogleTest binary per module, registered with ctest under NAME.
function(lumeo_add_test_module name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
  add_executable(${name}_tests ${ARG_SOURCES})
  target_link_libraries(${name}_tests PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock lumeo-test-support)
  target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/src)
  add_test(NAME ${name} COMMAND ${name}_tests)
  set(timeout 300)
  if(ARG_TIMEOUT)
    set(timeout ${ARG_TIMEOUT})
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout}
    ENVIRONMENT "LUMEO_SOURCE_DIR=${PROJECT_SOURCE_DIR};LUMEO_BUILD_DIR=${PROJECT_BINARY_DIR}")
endfunction()

# lumeo_glob_module(NAME DIR [LIBS ...] [TEST_LIBS ...] [CORE] [TIMEOUT s])
# The usual module: every .cpp directly in DIR is the library, every
# *_test.cpp its test binary (registered as NAME), *_fuzz.cpp are left to the
# fuzz build. Several developers can add files to one module without
# touching its CMakeLists.txt.
function(lumeo_glob_module name dir)
  cmake_parse_arguments(ARG "CORE" "TIMEOUT" "LIBS;TEST_LIBS" ${ARGN})
  file(GLOB all_sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  set(lib_sources)
  set(test_sources)
  foreach(src IN LISTS all_sources)
    if(src MATCHES "_test\\.cpp$")
      list(APPEND test_sources ${src})
    elseif(NOT src MATCHES "_fuzz\\.cpp$")
      list(APPEND lib_sources ${src})
    endif()
  endforeach()
  set(core_flag)
  if(ARG_CORE)
    set(core_flag CORE)
  endif()
  lumeo_add_module(${name} SOURCES ${lib_sources} LIBS ${ARG_LIBS} ${core_flag})
  if(test_sources)
    string(REPLACE "lumeo-" "" test_name ${name})
    string(REPLACE "-" "_" test_name ${test_name})
    set(timeout_arg)
    if(ARG_TIMEOUT)
      set(timeout_arg TIMEOUT ${ARG_TIMEOUT})
    endif()
    lumeo_add_test_module(${test_name} SOURCES ${test_sources} LIBS ${name} ${ARG_TEST_LIBS} ${timeout_arg})
  endif()
endfunction()

# lumeo_add_fuzz_target(NAME SOURCE file LIBS ... [CORPUS dir] [ITERATIONS n])
# A fuzz target defines LLVMFuzzerTestOneInput. In the ordinary build it is
# linked with a small driver and registered with ctest as NAME_fuzz_smoke: it
# replays every file of CORPUS (the kept finds, under testdata/) and then a
# bounded number of random and mutated inputs (ITERATIONS, default 20,000;
# a slow target takes fewer, and LUMEO_FUZZ_ITERATIONS gives the long run).
# With clang and -DLUMEO_FUZZ=ON it is linked with libFuzzer instead, for
# real fuzzing.
option(LUMEO_FUZZ "Link fuzz targets with libFuzzer (needs clang)" OFF)
function(lumeo_add_fuzz_target name)
  cmake_parse_arguments(ARG "" "SOURCE;CORPUS;ITERATIONS" "LIBS" ${ARGN})
  add_executable(${name}_fuzz ${ARG_SOURCE})
  target_link_libraries(${name}_fuzz PRIVATE ${ARG_LIBS})
  target_include_directories(${name}_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/src)
  if(LUMEO_FUZZ)
    target_compile_options(${name}_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
  else()
    target_link_libraries(${name}_fuzz PRIVATE lumeo-fuzz-driver)
    set(corpus ${PROJECT_SOURCE_DIR}/testdata/fuzz/${name})
    if(ARG_CORPUS)
      set(corpus ${ARG_CORPUS})
    endif()
    set(iterations)
    if(ARG_ITERATIONS)
      set(iterations --iterations=${ARG_ITERATIONS})
    endif()
    add_test(NAME ${name}_fuzz_smoke COMMAND ${name}_fuzz ${iterations} ${corpus})
    set_tests_properties(${name}_fuzz_smoke PROPERTIES TIMEOUT 300)
  endif()
endfunction()
