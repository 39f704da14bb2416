# The root certificate, an input of the build.
set(KELCHK_ROOT_CERT "" CACHE FILEPATH "PEM file with the root certificate to embed")
if(KELCHK_ROOT_CERT AND NOT IS_ABSOLUTE "${KELCHK_ROOT_CERT}")  # as it stays when its type was given too
  get_filename_component(absolute "${KELCHK_ROOT_CERT}" ABSOLUTE BASE_DIR "$ENV{PWD}")
  set_property(CACHE KELCHK_ROOT_CERT PROPERTY VALUE "${absolute}")
endif()

if(NOT ANDROID AND (KELCHK_BUILD_TESTS OR NOT KELCHK_ROOT_CERT))
  set(KELCHK_DEVELOPMENT_ROOT ${PROJECT_BINARY_DIR}/development-root/root.pem)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/make-development-root ${PROJECT_BINARY_DIR}/development-root
    COMMAND_ERROR_IS_FATAL ANY)
endif()

if(KELCHK_ROOT_CERT)
  set(KELCHK_PRODUCT_ROOT ${KELCHK_ROOT_CERT})
elseif(ANDROID)
  message(FATAL_ERROR "A build for a phone needs its root certificate: -DKELCHK_ROOT_CERT=ROOT.pem")
else()
  set(KELCHK_PRODUCT_ROOT ${KELCHK_DEVELOPMENT_ROOT})
  message(WARNING "KELCHK_ROOT_CERT is not set: this build trusts a development root of its own, "
    "${KELCHK_DEVELOPMENT_ROOT}. Its library is for this machine's tests, never for a phone.")
endif()

# Writes ${source}, which embeds the certificate ${pem}; refuses one that cannot be the library's root.
function(kelchk_embed_root_certificate pem source)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${pem})
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/embed-root-certificate ${pem} ${source}
    RESULT_VARIABLE result ERROR_VARIABLE fault)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "The root certificate ${pem} cannot be embedded. ${fault}")
  endif()
endfunction()
