# Cross build for the controller: 32-bit ARM, hard-float, Debian's tool chain.
# Libraries the tool chain lacks (SDL2, SDL2_ttf, benchmark) live in a
# sysroot folder that scripts/setup.sh unpacks from Debian's armhf packages.
# libjpeg is the controller's API-8 flavour, which set-up builds from
# Debian's libjpeg-turbo source into opt/libjpeg8 of the same folder.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KAVRI_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${KAVRI_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KAVRI_TRIPLET}-g++)

if(NOT KAVRI_SYSROOT)
  set(KAVRI_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../.deps/armhf-sysroot)
endif()
get_filename_component(KAVRI_SYSROOT ${KAVRI_SYSROOT} ABSOLUTE)
set(KAVRI_SYSROOT ${KAVRI_SYSROOT} CACHE PATH "armhf libraries unpacked from Debian packages")
set(KAVRI_SYSROOT_LIBDIRS
    ${KAVRI_SYSROOT}/opt/libjpeg8/lib
    ${KAVRI_SYSROOT}/usr/lib/${KAVRI_TRIPLET}
    ${KAVRI_SYSROOT}/lib/${KAVRI_TRIPLET}
    ${KAVRI_SYSROOT}/usr/lib/${KAVRI_TRIPLET}/pulseaudio)

set(CMAKE_FIND_ROOT_PATH /usr/${KAVRI_TRIPLET} ${KAVRI_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${KAVRI_TRIPLET})

# The sysroot is not a real one: the linker and the loader under qemu are
# told where the libraries' own dependencies are.
list(JOIN KAVRI_SYSROOT_LIBDIRS ":" _kavri_libpath)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_kavri_libpath}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_kavri_libpath}")
set(CMAKE_BUILD_RPATH ${KAVRI_SYSROOT_LIBDIRS})
# Libraries such as SDL2's sound libraries carry their own DT_RUNPATH to
# the system folders; only the loader's search path reaches them in the sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${KAVRI_TRIPLET} -E LD_LIBRARY_PATH=${_kavri_libpath})
