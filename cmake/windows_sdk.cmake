# What stands for the platform layer when the target is Windows itself: nothing but the SDK, and the
# system's libraries that are called.
add_library(platform INTERFACE)
target_compile_definitions(platform INTERFACE UNICODE _UNICODE WINVER=0x0601 _WIN32_WINNT=0x0601)
target_link_libraries(platform INTERFACE bcrypt crypt32 msi psapi shlwapi wtsapi32)

# The entry that a program with a wmain() is linked with.
add_library(platform_entry INTERFACE)
target_link_libraries(platform_entry INTERFACE platform)
target_link_options(platform_entry INTERFACE -municode -mconsole)

# Programs and libraries need nothing but the system's own libraries and the client's: the
# compiler's are linked in. They may lie anywhere in memory, and data is never run.
add_link_options(-static -fstack-protector-strong -Wl,--dynamicbase,--high-entropy-va,--nxcompat)
