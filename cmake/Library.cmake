# The library's sources, for whatever compiles them. No other list of its folders exists in the CMake build.
file(GLOB KELCHK_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*/*.cc)

# kelchk_add_library(target folder pem): libkelchk.so in ${folder}, trusting the root certificate ${pem}.
#
# It is linked by the C driver without start files, so that nothing runs at load and no C++ runtime is needed.

function(kelchk_add_library target folder pem)
  set(embedded ${PROJECT_BINARY_DIR}/${target}_root_certificate.cc)
  kelchk_embed_root_certificate(${pem} ${embedded})

  add_library(${target} SHARED ${KELCHK_SOURCES} ${embedded})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME kelchk
    LIBRARY_OUTPUT_DIRECTORY ${folder}
    LINKER_LANGUAGE C
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/src/kelchk.map)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_compile_options(${target} PRIVATE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden -ffunction-sections -fdata-sections
    -fstack-protector-strong)
  target_link_options(${target} PRIVATE -nostartfiles
    LINKER:--version-script=${PROJECT_SOURCE_DIR}/src/kelchk.map LINKER:--gc-sections LINKER:--as-needed
    LINKER:--hash-style=gnu LINKER:--enable-new-dtags LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  if(ANDROID)
    set_target_properties(${target} PROPERTIES SKIP_BUILD_RPATH ON)
    target_compile_options(${target} PRIVATE -Oz)
    target_link_options(${target} PRIVATE LINKER:--pack-dyn-relocs=relr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fcallgraph-info=su)  # for tools/worst-stack
  endif()
  if(NOT KELCHK_SANITIZE)  # a sanitizer checks the libc calls itself, and its own functions come with the program
    target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
  target_link_libraries(${target} PRIVATE kelchk_warnings kelchk_log kelchk_cutils kelchk_crypto ${CMAKE_DL_LIBS})
endfunction()
