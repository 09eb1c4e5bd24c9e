# What stands for the platform layer when the target is Windows itself: nothing but the SDK.
add_library(platform INTERFACE)
target_compile_definitions(platform INTERFACE UNICODE _UNICODE WINVER=0x0601 _WIN32_WINNT=0x0601)
