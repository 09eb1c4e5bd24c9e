# TinyXML, from Debian's libtinyxml-dev, as the target `tinyxml`. Its header is the same text on
# every system: a cross build gets a copy of it, so that no other header of the build machine comes
# into sight.
if(WIN32)
    add_library(tinyxml INTERFACE)
    configure_file(/usr/include/tinyxml.h ${PROJECT_BINARY_DIR}/include/tinyxml.h COPYONLY)
    target_include_directories(tinyxml SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/include)
else()
    find_path(TINYXML_INCLUDE_DIR tinyxml.h REQUIRED)
    find_library(TINYXML_LIBRARY tinyxml REQUIRED)
    add_library(tinyxml UNKNOWN IMPORTED)
    set_target_properties(tinyxml PROPERTIES
        IMPORTED_LOCATION ${TINYXML_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${TINYXML_INCLUDE_DIR})
endif()
