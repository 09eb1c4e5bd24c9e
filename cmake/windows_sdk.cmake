# What stands for the platform layer when the target is Windows itself: nothing but the SDK, and the
# system's libraries that are called.
add_library(platform INTERFACE)
target_compile_definitions(platform INTERFACE UNICODE _UNICODE WINVER=0x0601 _WIN32_WINNT=0x0601)
target_link_libraries(platform INTERFACE bcrypt crypt32 msi psapi shlwapi wtsapi32)

# The headers of the layer that stands for Windows elsewhere, compared with the SDK's own. Left out:
# what the SDK does not have, what only includes others, and a header of the SDK that does not
# compile for Windows 7.
find_program(PERL perl REQUIRED)
set(layer ${PROJECT_SOURCE_DIR}/platform/posix)
file(GLOB layer_headers CONFIGURE_DEPENDS ${layer}/include/*.h)
list(FILTER layer_headers EXCLUDE REGEX "/(platform_strings|windows|werapi)\\.h$")
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/sdk_check.cpp
                   DEPENDS ${layer}/sdk_check ${layer_headers}
                   COMMAND ${PERL} ${layer}/sdk_check ${layer_headers} >
                           ${PROJECT_BINARY_DIR}/sdk_check.cpp)
add_library(sdk_check OBJECT ${PROJECT_BINARY_DIR}/sdk_check.cpp)
target_compile_options(sdk_check PRIVATE -w)
target_link_libraries(sdk_check PRIVATE platform)

# The entry that a program with a wmain() is linked with.
add_library(platform_entry INTERFACE)
target_link_libraries(platform_entry INTERFACE platform)
target_link_options(platform_entry INTERFACE -municode -mconsole)

# Programs and libraries need nothing but the system's own libraries and the client's: the
# compiler's are linked in. They may lie anywhere in memory, and data is never run.
add_link_options(-static -fstack-protector-strong -Wl,--dynamicbase,--high-entropy-va,--nxcompat)
