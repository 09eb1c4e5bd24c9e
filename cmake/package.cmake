# The client's folder as a zip: cpack in the build folder of a Windows target, after its programs.
get_target_property(plugins plugins MANUALLY_ADDED_DEPENDENCIES)
install(TARGETS SNConfig snbackup SNCryptDLL utilsdll ${plugins} sncryptd snclient sngui snservice
        RUNTIME DESTINATION . LIBRARY DESTINATION .)
# As they were made: OpenSSL's FIPS module does not run when a byte of it is another.
get_target_property(openssl_files openssl_modules FILES)
install(FILES ${openssl_files} DESTINATION .)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION .)
# What is linked in or lies beside the programs comes with its license.
foreach(package IN ITEMS libssl-dev libtinyxml-dev libcli11-dev nlohmann-json3-dev
                      mingw-w64-common)
    install(FILES /usr/share/doc/${package}/copyright DESTINATION licenses RENAME ${package}.txt)
endforeach()
install(FILES /usr/share/common-licenses/Apache-2.0 DESTINATION licenses RENAME Apache-2.0.txt)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION .)

set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME Sentrel-SNConfig-${PROJECT_VERSION}-x64)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
