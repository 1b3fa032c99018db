# Installs the build into a scratch folder, moves it elsewhere, and builds and runs a program against it that
# finds it in one of the two ways: as a CMake package and by pkg-config.
set(first ${SCRATCH}/first)
set(moved ${SCRATCH}/moved)
file(REMOVE_RECURSE ${SCRATCH})

function(run)
   execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
   if(NOT result EQUAL 0)
      message(FATAL_ERROR "${ARGN}: ${result}\n${output}")
   endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${first})
file(RENAME ${first} ${moved})

file(GLOB_RECURSE strangers ${moved}/*/tests/* ${moved}/*/testing/*)
if(strangers)
   message(FATAL_ERROR "Installed, though they are for tests only: ${strangers}")
endif()

run(${moved}/${BINDIR}/l3tunnel-agent --help)
foreach(file share/man/man1/l3tunnel-agent.1 share/bash-completion/completions/l3tunnel-agent
             lib/systemd/system/l3tunnel-agent.service)
   if(NOT EXISTS ${moved}/${file})
      message(FATAL_ERROR "Not installed: ${file}")
   endif()
endforeach()

set(ENV{PKG_CONFIG_PATH} ${moved}/${LIBDIR}/pkgconfig)
foreach(way package pkg-config)
   set(build ${SCRATCH}/${way})
   set(toolchain)
   if(TOOLCHAIN)
      set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
   endif()
   run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${build} -G ${GENERATOR} ${toolchain} -DWAY=${way}
       -DCMAKE_PREFIX_PATH=${moved} -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
       "-DCMAKE_CXX_FLAGS=${FLAGS}")
   run(${CMAKE_COMMAND} --build ${build})
   run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${moved}/${LIBDIR} ${build}/consumer)
endforeach()
