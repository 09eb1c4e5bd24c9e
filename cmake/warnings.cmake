# Warnings are on for every target and are errors: g++ and clang++ both build without one.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
                    -Wformat=2 -Wnull-dereference -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ reports these two from inside the standard library's own inlined code.
    add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized)
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-D_FORTIFY_SOURCE=2 -fstack-protector-strong)
endif()
