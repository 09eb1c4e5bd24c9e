# What stands for the platform layer when the target is Windows itself: nothing but the SDK.
add_library(platform INTERFACE)
target_compile_definitions(platform INTERFACE UNICODE _UNICODE WINVER=0x0601 _WIN32_WINNT=0x0601)

# TinyXML's header is the same text on every system; it is copied out of Debian's package so that
# no other header of the build machine comes into sight.
configure_file(/usr/include/tinyxml.h ${PROJECT_BINARY_DIR}/include/tinyxml.h COPYONLY)
add_library(tinyxml INTERFACE)
target_include_directories(tinyxml SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/include)
