# Builds 32-bit x86 programs on a 64-bit machine, with the libraries of Debian's i386 architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
# What is built runs right here.
set(CMAKE_CROSSCOMPILING OFF)

set(CMAKE_CXX_COMPILER g++)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_C_FLAGS_INIT -m32)

# A package that has no 32-bit files must not be found as a 64-bit one.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# zlib for 32 bits is a package of the 64-bit architecture.
set(CMAKE_LIBRARY_PATH /usr/lib32)
