# What "cmake --install" puts where: the header, the library, a CMake package, a pkg-config file, and kelctl with its
# manual page where it is built. The tree may be moved afterwards, as a whole.
#
# A phone has liblog and libcutils. Elsewhere the library finds its stand-ins in a folder of its own beside it, where they
# are mistaken for nobody's, and the crypto library where Debian keeps it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(NOT ANDROID)
  cmake_path(GET KELCHK_CRYPTO_LIBRARY PARENT_PATH crypto_folder)
  set_target_properties(kelchk PROPERTIES INSTALL_RPATH "$ORIGIN/kelchk;${crypto_folder}")
  install(TARGETS kelchk_log kelchk_cutils LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/kelchk)
endif()
install(TARGETS kelchk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/kelchk.h TYPE INCLUDE)

if(TARGET kelchk_kelctl)
  set_target_properties(kelchk_kelctl PROPERTIES INSTALL_RPATH ${crypto_folder})
  install(TARGETS kelchk_kelctl)
  install(FILES docs/kelctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES completions/kelctl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kelchk)
configure_package_config_file(cmake/kelchkConfig.cmake.in kelchkConfig.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(kelchkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelchkConfig.cmake ${PROJECT_BINARY_DIR}/kelchkConfigVersion.cmake
  DESTINATION ${package_folder})

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE prefix_from_pkgconfig)
configure_file(cmake/kelchk.pc.in kelchk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelchk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
