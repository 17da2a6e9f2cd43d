# Debian packages, made by cpack from the components of cmake/install.cmake; scripts/package.sh sets Debian's
# paths and the architecture.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_CONTACT "olv-twamp developers <olv-twamp@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(library_package libolv-twamp${PROJECT_VERSION_MAJOR})
set(same_version "(= ${PROJECT_VERSION})")
set(triggers ${PROJECT_SOURCE_DIR}/cmake/packaging/triggers) # CPack's own scripts call ldconfig besides

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${triggers})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
Makes a network processor a TWAMP (RFC 5357) session reflector and reads its
counters back. The framework and the runtime environment that the library
calls are provided by the process that loads it.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libolv-twamp-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} ${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - development files
Headers of the library and of the interfaces that it calls, and the files by
which CMake and pkg-config find them.")

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps knows no symbols of Debian's C library for cross compilers. The library, which needs
  # nothing else, needs none that is newer than the first one for the EABI of 32-bit ARM.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.4)")
else()
  list(APPEND CPACK_COMPONENTS_ALL sim)
  set(CPACK_DEBIAN_SIM_PACKAGE_NAME olv-twamp-sim)
  set(CPACK_DEBIAN_SIM_PACKAGE_SECTION devel)
  set(CPACK_DEBIAN_SIM_PACKAGE_CONTROL_EXTRA ${triggers})
  set(CPACK_DEBIAN_SIM_PACKAGE_DEPENDS
      "${library_package} ${same_version}, libolv-twamp-dev ${same_version}")
  set(CPACK_DEBIAN_SIM_PACKAGE_SUGGESTS gnuplot-nox) # draws the pictures of twamp-probe
  set(CPACK_DEBIAN_SIM_DESCRIPTION "${PROJECT_DESCRIPTION} - software platform
The framework, the runtime environment and a fast path in software, to use
libolv-twamp on a workstation; twampctl, the control application, and
twamp-probe, a session sender.")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/twamp ${PROJECT_BINARY_DIR}/sim)
endif()

# /usr/share/doc of each package
find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} variable)
  install(FILES ${PROJECT_BINARY_DIR}/changelog.gz cmake/packaging/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${variable}_PACKAGE_NAME}
          COMPONENT ${component})
endforeach()

include(CPack)
