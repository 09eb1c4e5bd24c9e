# Libraries that are headers alone, as the targets `cli11` and `nlohmann_json`. They come from the
# building system for every target. Each is reached by a folder of its own, so that a cross compiler
# sees none of the building system's other headers.
function(sn_header_only target folder)
    find_path(${target}_INCLUDE_DIR ${folder} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    set(own ${PROJECT_BINARY_DIR}/generated/header_only/${target})
    file(MAKE_DIRECTORY ${own})
    file(CREATE_LINK ${${target}_INCLUDE_DIR}/${folder} ${own}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE)
    target_include_directories(${target} SYSTEM INTERFACE ${own})
endfunction()
sn_header_only(cli11 CLI)
sn_header_only(nlohmann_json nlohmann)
