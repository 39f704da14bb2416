# What "cmake --install" puts where. The components are one for each Debian package, named after it, and "development".
# The tree may be moved afterwards, as a whole.
#
# A phone has the library and its platform's own in its system folders. Elsewhere they are in a private folder, where
# neither libkelchk.so nor the stand-ins liblog.so and libcutils.so are mistaken for others, and Debian keeps the crypto
# library in one of its own.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(library_folder ${CMAKE_INSTALL_LIBDIR})
if(NOT ANDROID)
  set(library_folder ${CMAKE_INSTALL_LIBDIR}/kelchk)
  cmake_path(GET KELCHK_CRYPTO_LIBRARY PARENT_PATH crypto_folder)
  set_target_properties(kelchk PROPERTIES INSTALL_RPATH "$ORIGIN;${crypto_folder}")
  install(TARGETS kelchk_log kelchk_cutils LIBRARY DESTINATION ${library_folder} COMPONENT kelchk-simulator)
endif()
install(TARGETS kelchk LIBRARY DESTINATION ${library_folder} COMPONENT kelchk-simulator)

function(kelchk_install_program component program)
  if(TARGET kelchk_${program})
    install(TARGETS kelchk_${program} COMPONENT ${component})
    install(FILES docs/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
    install(FILES completions/${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      COMPONENT ${component})
  endif()
endfunction()

if(NOT ANDROID)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
    OUTPUT_VARIABLE libraries_from_programs)
  set(libraries_from_programs ${libraries_from_programs}/kelchk)
endif()
if(TARGET kelchk_kelphone AND NOT ANDROID)
  set_target_properties(kelchk_kelphone PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
endif()
if(TARGET kelchk_kelctl)
  set_target_properties(kelchk_kelctl PROPERTIES INSTALL_RPATH ${crypto_folder})
endif()
if(TARGET kelchk_phone)
  target_compile_definitions(kelchk_phone PRIVATE PHONE_INSTALLED_VENDOR_LIBRARIES="${libraries_from_programs}/vendor")
  install(TARGETS kelchk_vendor_nvram kelchk_vendor_atci kelchk_vendor_efuse
    LIBRARY DESTINATION ${library_folder}/vendor COMPONENT kelchk-simulator)
endif()
kelchk_install_program(kelchk-simulator phone)
kelchk_install_program(kelchk-simulator kelphone)
kelchk_install_program(kelctl kelctl)
kelchk_install_program(kelsign kelsign)

# For programs that use the library.
install(FILES include/kelchk.h TYPE INCLUDE COMPONENT development)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kelchk)
configure_package_config_file(cmake/kelchkConfig.cmake.in kelchkConfig.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS library_folder CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(kelchkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelchkConfig.cmake ${PROJECT_BINARY_DIR}/kelchkConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE prefix_from_pkgconfig)
configure_file(cmake/kelchk.pc.in kelchk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelchk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
