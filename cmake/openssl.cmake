# OpenSSL's libcrypto as the target `openssl_crypto`. A cross build compiles against a copy of the
# headers, so that no other header of the build machine comes into sight.
add_library(openssl_crypto INTERFACE)
if(WIN32)
    file(COPY /usr/include/openssl DESTINATION ${PROJECT_BINARY_DIR}/include)
    file(GLOB OPENSSL_CONFIGURATION /usr/include/*-linux-gnu/openssl/*.h)
    file(COPY ${OPENSSL_CONFIGURATION} DESTINATION ${PROJECT_BINARY_DIR}/include/openssl)
    target_include_directories(openssl_crypto SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/include)
else()
    find_package(OpenSSL 3.0 REQUIRED)
    target_link_libraries(openssl_crypto INTERFACE OpenSSL::Crypto)
endif()
