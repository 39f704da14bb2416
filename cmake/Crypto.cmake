# The crypto library. Debian keeps it in "android" folders of its own, where no other libcrypto is mistaken for it; for a
# phone both variables are given.
find_path(KELCHK_CRYPTO_INCLUDE openssl/is_boringssl.h PATHS /usr/include/android NO_CMAKE_FIND_ROOT_PATH)
find_library(KELCHK_CRYPTO_LIBRARY NAMES libcrypto.so.0
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
foreach(variable KELCHK_CRYPTO_INCLUDE KELCHK_CRYPTO_LIBRARY)
  if(NOT ${variable})
    message(FATAL_ERROR "${variable} not found: install android-libboringssl-dev, or for a phone name the vendor's own")
  endif()
endforeach()

add_library(kelchk_crypto SHARED IMPORTED)
set_target_properties(kelchk_crypto PROPERTIES
  IMPORTED_LOCATION ${KELCHK_CRYPTO_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${KELCHK_CRYPTO_INCLUDE})
