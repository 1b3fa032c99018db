# l3tunnel_test(<folder> SOURCES ... LIBRARIES ...): the folder's one test binary, each test known to ctest.
enable_testing()
find_package(GTest REQUIRED)
include(GoogleTest)

function(l3tunnel_test folder)
   cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
   string(REPLACE "/" "-" name ${folder})
   add_executable(${name}-test ${ARG_SOURCES})
   target_include_directories(${name}-test PRIVATE ${PROJECT_SOURCE_DIR})
   target_link_libraries(${name}-test PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
   gtest_discover_tests(${name}-test DISCOVERY_MODE PRE_TEST TEST_PREFIX "${folder}/"
                        PROPERTIES TIMEOUT 300)
endfunction()
