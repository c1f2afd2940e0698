# Copyright Marvolith contributors.
# Shared helpers that declare every folder target the same way.

set(MARVOLITH_WARNING_FLAGS -Wall -Wextra -Wno-unused-parameter)
if(MARVOLITH_WERROR)
  list(APPEND MARVOLITH_WARNING_FLAGS -Werror)
endif()

# Shared libraries and the module refuse unresolved symbols at link time, except under clang's
# sanitizers, whose runtime only the executable carries.
set(MARVOLITH_NO_UNDEFINED -Wl,--no-undefined)
if(MARVOLITH_BUILD_FUZZ OR (MARVOLITH_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
  set(MARVOLITH_NO_UNDEFINED)
endif()

if(MARVOLITH_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# marvolith_add_module(NAME SOURCES ... DEPS ... [PUBLIC_DEPS ...])
# Declares marvolith_<NAME> with alias marvolith::<NAME>; headers are included from the repository root.
# A static library; the host's layers are shared (marvolith_add_layer) so that the tool and the
# loaded plug-in module share one host.
function(marvolith_add_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PUBLIC_DEPS" ${ARGN})
  add_library(marvolith_${name} STATIC ${ARG_SOURCES})
  add_library(marvolith::${name} ALIAS marvolith_${name})
  target_include_directories(marvolith_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(marvolith_${name} PRIVATE ${MARVOLITH_WARNING_FLAGS})
  target_link_libraries(marvolith_${name} PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_DEPS})
endfunction()

# marvolith_add_layer(NAME SOURCES ... [BELOW target]): one shared library of the host's stack,
# marvolith_<NAME>, linking only BELOW (which carries the layers under it). Its objects compile
# in an object library of their own, which needs headers only, so that every layer compiles in
# parallel and only the links follow the order. Unresolved symbols are refused, so a call
# upwards fails the link.
function(marvolith_add_layer name)
  cmake_parse_arguments(ARG "" "BELOW" "SOURCES" ${ARGN})
  add_library(marvolith_${name}_objects OBJECT ${ARG_SOURCES})
  target_include_directories(marvolith_${name}_objects PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(marvolith_${name}_objects PRIVATE ${MARVOLITH_WARNING_FLAGS})
  add_library(marvolith_${name} SHARED $<TARGET_OBJECTS:marvolith_${name}_objects>)
  add_library(marvolith::${name} ALIAS marvolith_${name})
  target_include_directories(marvolith_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  if(ARG_BELOW)
    target_link_libraries(marvolith_${name} PUBLIC ${ARG_BELOW})
  endif()
  target_link_options(marvolith_${name} PRIVATE ${MARVOLITH_NO_UNDEFINED})
endfunction()

# marvolith_add_tests(NAME SOURCES ... DEPS ...): one GoogleTest binary per folder, discovered by CTest.
function(marvolith_add_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(marvolith_${name}_tests ${ARG_SOURCES})
  target_compile_options(marvolith_${name}_tests PRIVATE ${MARVOLITH_WARNING_FLAGS})
  target_include_directories(marvolith_${name}_tests PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(marvolith_${name}_tests PRIVATE ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main rapidcheck)
  gtest_discover_tests(marvolith_${name}_tests
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;RC_PARAMS=seed=20202"
    DISCOVERY_TIMEOUT 60)
endfunction()

# marvolith_add_bench(NAME SOURCES ... DEPS ...): one Google Benchmark binary per folder.
function(marvolith_add_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(marvolith_${name}_bench ${ARG_SOURCES})
  target_compile_options(marvolith_${name}_bench PRIVATE ${MARVOLITH_WARNING_FLAGS})
  target_include_directories(marvolith_${name}_bench PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(marvolith_${name}_bench PRIVATE ${ARG_DEPS} benchmark::benchmark)
endfunction()
