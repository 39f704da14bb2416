# The target "package": a Debian package for each place, from the components of the same names. Without a root certificate
# kelchk-simulator is left out: the key of a development root lies in its build folder, so whoever built it can sign.
set(KELCHK_MAINTAINER "libkelchk maintainers <libkelchk@localhost>" CACHE STRING "Maintainer of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelchk)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/add_files.cmake)
set(CPACK_KELCHK_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_KELCHK_ROOT_CERT ${KELCHK_ROOT_CERT})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${KELCHK_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # needs dpkg-dev
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENTS_ALL kelsign kelctl kelchk-simulator)
if(NOT KELCHK_ROOT_CERT)
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL kelchk-simulator)
endif()

set(CPACK_COMPONENT_KELSIGN_DESCRIPTION "signs what phones are provisioned with
Makes root and signer certificates, signs challenges, device records and chip
ids, and answers a factory host's requests line by line. The keys are PEM
files or in a PKCS #11 module.")
set(CPACK_DEBIAN_KELSIGN_PACKAGE_NAME kelsign)
set(CPACK_DEBIAN_KELSIGN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_KELSIGN_PACKAGE_RECOMMENDS libengine-pkcs11-openssl)

set(CPACK_COMPONENT_KELCTL_DESCRIPTION "provisions phones from the factory host
Moves text between a phone's session and a signer's, checks every answer, and
explains stored files, records and certificates.")
set(CPACK_DEBIAN_KELCTL_PACKAGE_NAME kelctl)
set(CPACK_DEBIAN_KELCTL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_KELCTL_PACKAGE_SUGGESTS "kelsign, kelchk-simulator")

set(CPACK_COMPONENT_KELCHK-SIMULATOR_DESCRIPTION "simulated phones with libkelchk
Makes simulated phones and runs programs inside them: kelphone, the phone's
own program, with the library and stand-ins for a phone's other libraries.")
set(CPACK_DEBIAN_KELCHK-SIMULATOR_PACKAGE_NAME kelchk-simulator)
set(CPACK_DEBIAN_KELCHK-SIMULATOR_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_KELCHK-SIMULATOR_PACKAGE_DEPENDS bubblewrap)
set(CPACK_DEBIAN_KELCHK-SIMULATOR_PACKAGE_RECOMMENDS faketime)

include(CPack)
