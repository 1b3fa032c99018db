# One set of warnings for every target; each of them is an error.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
   # Unique symbols would keep a plug-in from ever being unloaded.
   add_compile_options(-fno-gnu-unique)
endif()
