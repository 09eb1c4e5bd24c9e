# OpenSSL's libcrypto as the target `openssl_crypto`. OPENSSL_BESIDE is what the client keeps of it
# beside its programs, each as <file>=<name there>. Modules are loaded by their path without an
# extension: Windows adds one, other systems take the path as it stands.
add_library(openssl_crypto INTERFACE)
if(WIN32)
    set(folder ${MADE_FROM_SOURCE}/windows-openssl)
    set(OPENSSL_BESIDE)
    foreach(name libcrypto-3-x64.dll fips.dll legacy.dll fipsmodule.cnf)
        list(APPEND OPENSSL_BESIDE ${folder}/bin/${name}=${name})
    endforeach()
    target_include_directories(openssl_crypto SYSTEM INTERFACE ${folder}/include)
    target_link_libraries(openssl_crypto INTERFACE ${folder}/lib/libcrypto.dll.a)
else()
    find_package(OpenSSL 3.0 REQUIRED)
    target_link_libraries(openssl_crypto INTERFACE OpenSSL::Crypto)
    cmake_path(GET OPENSSL_CRYPTO_LIBRARY PARENT_PATH folder)
    set(OPENSSL_BESIDE ${folder}/ossl-modules/legacy.so=legacy)
    # The FIPS module is left out where its source cannot be had.
    if(EXISTS ${MADE_FROM_SOURCE}/fips/fips.so)
        list(APPEND OPENSSL_BESIDE ${MADE_FROM_SOURCE}/fips/fips.so=fips
                                   ${MADE_FROM_SOURCE}/fips/fipsmodule.cnf=fipsmodule.cnf)
    else()
        message(WARNING "Without OpenSSL's FIPS module: script/bootstrap says why")
    endif()
endif()
