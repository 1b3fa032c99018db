# l3tunnel_test(<folder> SOURCES ... LIBRARIES ...): the folder's one test binary, each test known to ctest.
enable_testing()
include(GoogleTest)

# Built from its sources, as Debian has them, in every preset: no package of it fits them all.
set(BUILD_GMOCK ON)
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

function(l3tunnel_test folder)
   cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
   string(REPLACE "/" "-" name ${folder})
   add_executable(${name}-test ${ARG_SOURCES})
   target_include_directories(${name}-test PRIVATE ${PROJECT_SOURCE_DIR})
   target_link_libraries(${name}-test PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)

   # What is quick enough goes through everything there is, the rest through a part of it.
   target_compile_definitions(${name}-test PRIVATE
      $<$<AND:$<CONFIG:Release>,$<EQUAL:${CMAKE_SIZEOF_VOID_P},8>>:L3TUNNEL_LONG_TESTS>)

   # Files of random tests are named *RandomTest.cpp.
   set(ordinary ${ARG_SOURCES})
   list(FILTER ordinary EXCLUDE REGEX "RandomTest\\.cpp$")
   set_source_files_properties(${ordinary} PROPERTIES COMPILE_OPTIONS "${L3TUNNEL_TEST_OPTIONS}")

   gtest_discover_tests(${name}-test DISCOVERY_MODE PRE_TEST TEST_PREFIX "${folder}/"
                        PROPERTIES TIMEOUT 300)
endfunction()
