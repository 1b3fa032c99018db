# l3tunnel_install(): lays down the two libraries, their plug-ins and headers, the agent, and what lets other
# projects find them. Nothing that is laid down knows where it lies, so the whole can be moved.
file(RELATIVE_PATH libraries_from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(L3TUNNEL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/l3tunnel)
set(L3TUNNEL_PACKAGEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZandorL3Tunnel)

# l3tunnel_plugin(<target> <table type>): puts the plug-in where the loader looks, built and installed.
function(l3tunnel_plugin target type)
   set(folder AsicFeature/${type})
   set_target_properties(${target} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${folder}
      INSTALL_RPATH "$ORIGIN/../..")
   install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${folder})
endfunction()

function(l3tunnel_install)
   include(CMakePackageConfigHelpers)

   set_target_properties(platform PROPERTIES EXPORT_NAME ZandorPlatform INSTALL_RPATH "$ORIGIN")
   set_target_properties(l3tunnel PROPERTIES EXPORT_NAME ZandorL3Tunnel INSTALL_RPATH "$ORIGIN")
   set_target_properties(l3tunnel-agent l3tunnel-mirelog PROPERTIES
      INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
   install(TARGETS platform l3tunnel EXPORT ZandorL3Tunnel
           INCLUDES DESTINATION ${L3TUNNEL_INCLUDEDIR})
   install(TARGETS l3tunnel-agent l3tunnel-mirelog)

   foreach(room platform plugin types swtable tables programmer)
      install(DIRECTORY ${PROJECT_SOURCE_DIR}/${room} DESTINATION ${L3TUNNEL_INCLUDEDIR}
              FILES_MATCHING PATTERN "*.h"
              PATTERN tests EXCLUDE
              PATTERN testing EXCLUDE)
   endforeach()

   install(EXPORT ZandorL3Tunnel NAMESPACE ZandorL3Tunnel:: FILE ZandorL3TunnelConfig.cmake
           DESTINATION ${L3TUNNEL_PACKAGEDIR})
   write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZandorL3TunnelConfigVersion.cmake
                                    COMPATIBILITY SameMinorVersion)
   file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
   configure_file(${PROJECT_SOURCE_DIR}/cmake/ZandorL3Tunnel.pc.in ${CMAKE_BINARY_DIR}/ZandorL3Tunnel.pc @ONLY)
   install(FILES ${CMAKE_BINARY_DIR}/ZandorL3TunnelConfigVersion.cmake DESTINATION ${L3TUNNEL_PACKAGEDIR})
   install(FILES ${CMAKE_BINARY_DIR}/ZandorL3Tunnel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

   add_test(NAME install
            COMMAND ${CMAKE_COMMAND}
               -D BUILD=${CMAKE_BINARY_DIR} -D SCRATCH=${CMAKE_BINARY_DIR}/install-test
               -D CONSUMER=${PROJECT_SOURCE_DIR}/cmake/consumer
               -D BINDIR=${CMAKE_INSTALL_BINDIR} -D LIBDIR=${CMAKE_INSTALL_LIBDIR}
               -D GENERATOR=${CMAKE_GENERATOR} -D TOOLCHAIN=${CMAKE_TOOLCHAIN_FILE}
               -D COMPILER=${CMAKE_CXX_COMPILER} -D BUILD_TYPE=${CMAKE_BUILD_TYPE}
               "-DFLAGS=${CMAKE_CXX_FLAGS} $<$<CONFIG:Debug>:${CMAKE_CXX_FLAGS_DEBUG}>"
               -P ${PROJECT_SOURCE_DIR}/cmake/InstallTest.cmake)
   set_tests_properties(install PROPERTIES TIMEOUT 300)
endfunction()
