# Warnings are on for every target; g++ and clang++ both build without one. The presets make them
# errors (CMAKE_COMPILE_WARNING_AS_ERROR).
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
                    -Wformat=2 -Wnull-dereference)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ reports these two from inside the standard library's own inlined code.
    add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized)
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-D_FORTIFY_SOURCE=2 -fstack-protector-strong)
endif()
