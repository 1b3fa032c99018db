# The library is made of rooms, one folder each, and is one shared object.
# l3tunnel_room(<folder>): the folder's sources and its one test binary, if it has tests.
add_library(l3tunnel SHARED)
set_target_properties(l3tunnel PROPERTIES OUTPUT_NAME ZandorL3Tunnel)
target_link_libraries(l3tunnel PUBLIC platform)

function(l3tunnel_room folder)
   file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
   target_sources(l3tunnel PRIVATE ${sources})
   file(GLOB tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/tests/*Test.cpp)
   if(tests)
      l3tunnel_test(${folder} SOURCES ${tests} LIBRARIES l3tunnel model-chip)
   endif()
endfunction()
