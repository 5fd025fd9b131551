# Third-party libraries. On armhf they come from the sysroot that
# scripts/setup.sh unpacks; natively from the host's Debian packages.
find_package(Threads REQUIRED)
if(CMAKE_CROSSCOMPILING)
  # The controller ships libjpeg.so.8 (API version 8), whose decompressor
  # record differs from Debian's libjpeg.so.62: link against the jpeg8 build
  # that set-up makes from Debian's libjpeg-turbo source, headers included.
  set(KAVRI_JPEG8_PREFIX ${KAVRI_SYSROOT}/opt/libjpeg8)
  if(NOT EXISTS ${KAVRI_JPEG8_PREFIX}/lib/libjpeg.so.8)
    message(FATAL_ERROR "${KAVRI_JPEG8_PREFIX} lacks libjpeg.so.8: run scripts/setup.sh")
  endif()
  set(JPEG_INCLUDE_DIR ${KAVRI_JPEG8_PREFIX}/include CACHE PATH "" FORCE)
  set(JPEG_LIBRARY ${KAVRI_JPEG8_PREFIX}/lib/libjpeg.so CACHE FILEPATH "" FORCE)
endif()
find_package(JPEG REQUIRED)
find_package(PkgConfig)

if(CMAKE_CROSSCOMPILING)
  set(KAVRI_SDL2_INCLUDE_DIRS ${KAVRI_SYSROOT}/usr/include/SDL2
      ${KAVRI_SYSROOT}/usr/include/${KAVRI_TRIPLET}/SDL2)
  find_library(KAVRI_SDL2_LIB SDL2-2.0 PATHS ${KAVRI_SYSROOT_LIBDIRS} NO_DEFAULT_PATH)
  find_library(KAVRI_SDL2_TTF_LIB SDL2_ttf-2.0 PATHS ${KAVRI_SYSROOT_LIBDIRS} NO_DEFAULT_PATH)
  set(KAVRI_SDL2_LIBRARIES ${KAVRI_SDL2_TTF_LIB} ${KAVRI_SDL2_LIB})
else()
  pkg_check_modules(KAVRI_SDL2 REQUIRED IMPORTED_TARGET sdl2 SDL2_ttf)
  set(KAVRI_SDL2_INCLUDE_DIRS ${KAVRI_SDL2_INCLUDE_DIRS})
  set(KAVRI_SDL2_LIBRARIES PkgConfig::KAVRI_SDL2)
endif()

# GoogleTest is built from Debian's sources on both targets, so that the
# cross build and the sanitizer build use a matching copy.
if(BUILD_TESTING OR NOT DEFINED BUILD_TESTING)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  # Warnings are errors for our code; the compiler's false alarms in
  # GoogleTest's own sources at -O3 are not ours to fix.
  foreach(target gtest gtest_main gmock gmock_main)
    target_compile_options(${target} PRIVATE -Wno-error)
  endforeach()
endif()

find_package(benchmark QUIET)

# CLI11 and nlohmann-json are header-only Debian packages. The cross compiler
# does not search /usr/include (that would mix in the host's C library), so
# both targets see just these two folders through links in the build tree.
set(KAVRI_HEADER_ONLY_DIR ${CMAKE_BINARY_DIR}/header-only)
foreach(folder CLI nlohmann)
  if(NOT EXISTS /usr/include/${folder})
    message(FATAL_ERROR "/usr/include/${folder} is missing: run scripts/setup.sh")
  endif()
  file(MAKE_DIRECTORY ${KAVRI_HEADER_ONLY_DIR})
  file(CREATE_LINK /usr/include/${folder} ${KAVRI_HEADER_ONLY_DIR}/${folder} SYMBOLIC)
endforeach()

# What our command-line tools share: the two libraries and apps/common.
add_library(kavri_app_common INTERFACE)
target_include_directories(kavri_app_common SYSTEM INTERFACE ${KAVRI_HEADER_ONLY_DIR})
target_include_directories(kavri_app_common INTERFACE ${PROJECT_SOURCE_DIR}/apps/common)

# cpp-httplib for the small HTTP endpoints, as the target kavri_httplib where
# it is there. Debian ships it compiled with TLS, zlib and brotli switched on;
# the same switches here keep its classes the same as in the library.
if(CMAKE_CROSSCOMPILING)
  find_library(KAVRI_HTTPLIB_LIB cpp-httplib PATHS ${KAVRI_SYSROOT_LIBDIRS} NO_DEFAULT_PATH)
  if(KAVRI_HTTPLIB_LIB AND EXISTS ${KAVRI_SYSROOT}/usr/include/httplib.h)
    # Just the headers httplib.h includes: the sysroot's include folder also
    # holds a libjpeg of the other API.
    set(_kavri_httplib_dir ${CMAKE_BINARY_DIR}/httplib-headers)
    file(MAKE_DIRECTORY ${_kavri_httplib_dir}/arch)
    foreach(entry httplib.h openssl zlib.h zconf.h brotli)
      file(CREATE_LINK ${KAVRI_SYSROOT}/usr/include/${entry} ${_kavri_httplib_dir}/${entry} SYMBOLIC)
    endforeach()
    file(CREATE_LINK ${KAVRI_SYSROOT}/usr/include/${KAVRI_TRIPLET}/openssl ${_kavri_httplib_dir}/arch/openssl SYMBOLIC)
    add_library(kavri_httplib INTERFACE)
    target_include_directories(kavri_httplib SYSTEM INTERFACE ${_kavri_httplib_dir} ${_kavri_httplib_dir}/arch)
    target_link_libraries(kavri_httplib INTERFACE ${KAVRI_HTTPLIB_LIB})
    target_compile_definitions(kavri_httplib INTERFACE CPPHTTPLIB_OPENSSL_SUPPORT CPPHTTPLIB_ZLIB_SUPPORT
                                                       CPPHTTPLIB_BROTLI_SUPPORT)
  endif()
else()
  pkg_check_modules(KAVRI_CPPHTTPLIB IMPORTED_TARGET cpp-httplib)
  if(KAVRI_CPPHTTPLIB_FOUND)
    add_library(kavri_httplib INTERFACE)
    target_link_libraries(kavri_httplib INTERFACE PkgConfig::KAVRI_CPPHTTPLIB)
  endif()
endif()
