# What a phone provides: liblog, libcutils and the crypto library. On a machine that is no phone the first two are our
# stand-ins, and Debian keeps the third in "android" folders of its own, where no other libcrypto is mistaken for it.
if(ANDROID)
  set(crypto_names crypto libcrypto.so)
  set(places)
  find_library(KELCHK_CUTILS_LIBRARY cutils)
  find_path(KELCHK_CUTILS_INCLUDE cutils/properties.h)
else()
  set(crypto_names libcrypto.so.0)
  set(places PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
endif()
find_library(KELCHK_CRYPTO_LIBRARY NAMES ${crypto_names} ${places})
find_path(KELCHK_CRYPTO_INCLUDE openssl/is_boringssl.h PATHS /usr/include/android NO_CMAKE_FIND_ROOT_PATH)

function(kelchk_require advice)
  foreach(variable ${ARGN})
    if(NOT ${variable})
      message(FATAL_ERROR "${variable} is not set and was not found: ${advice}")
    endif()
  endforeach()
endfunction()

add_library(kelchk_crypto SHARED IMPORTED)
if(ANDROID)
  kelchk_require("name the vendor's own, -D<variable>=PATH" KELCHK_CUTILS_LIBRARY KELCHK_CUTILS_INCLUDE
    KELCHK_CRYPTO_LIBRARY KELCHK_CRYPTO_INCLUDE)
  add_library(kelchk_log INTERFACE)
  target_link_libraries(kelchk_log INTERFACE log)
  add_library(kelchk_cutils SHARED IMPORTED)
  set_target_properties(kelchk_cutils PROPERTIES
    IMPORTED_LOCATION ${KELCHK_CUTILS_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${KELCHK_CUTILS_INCLUDE})
else()
  kelchk_require("install Debian's android-libboringssl-dev, and android-libboringssl for another architecture"
    KELCHK_CRYPTO_LIBRARY KELCHK_CRYPTO_INCLUDE)
  add_subdirectory(${PROJECT_SOURCE_DIR}/simulator simulator)
endif()
set_target_properties(kelchk_crypto PROPERTIES
  IMPORTED_LOCATION ${KELCHK_CRYPTO_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${KELCHK_CRYPTO_INCLUDE})
