# Run by CPack over the staged trees: adds what Debian's policy asks of a package and no other installation needs.
cmake_minimum_required(VERSION 3.25)
set(staging ${CPACK_TEMPORARY_DIRECTORY})
set(debian ${CPACK_KELCHK_SOURCE}/cmake/debian)

if(NOT CPACK_KELCHK_ROOT_CERT AND kelchk-simulator IN_LIST CPACK_COMPONENTS_ALL)
  message(FATAL_ERROR "kelchk-simulator needs a root certificate: set KELCHK_ROOT_CERT. "
    "A development root is never packaged.")
endif()
if(NOT CPACK_KELCHK_ROOT_CERT)
  message(NOTICE "kelchk-simulator is left out: KELCHK_ROOT_CERT is not set, and a development root is never packaged.")
endif()

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH overrides the time

foreach(package ${CPACK_COMPONENTS_ALL})
  set(usr ${staging}/${package}/usr)
  set(documents ${usr}/share/doc/${package})
  file(GLOB manual_pages ${usr}/share/man/man1/*.1)
  configure_file(${debian}/changelog.in ${documents}/changelog @ONLY)
  execute_process(COMMAND gzip -9n ${manual_pages} ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
  file(COPY ${debian}/copyright DESTINATION ${documents})
  configure_file(${debian}/lintian-overrides ${usr}/share/lintian/overrides/${package} COPYONLY)
endforeach()
