# TinyXML as the target `tinyxml`.
if(WIN32)
    set(TINYXML_INCLUDE_DIR ${MADE_FROM_SOURCE}/windows-tinyxml/include)
    set(TINYXML_LIBRARY ${MADE_FROM_SOURCE}/windows-tinyxml/lib/libtinyxml.a)
else()
    find_path(TINYXML_INCLUDE_DIR tinyxml.h REQUIRED)
    find_library(TINYXML_LIBRARY tinyxml REQUIRED)
endif()
add_library(tinyxml UNKNOWN IMPORTED)
set_target_properties(tinyxml PROPERTIES
    IMPORTED_LOCATION ${TINYXML_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${TINYXML_INCLUDE_DIR})
