# What `cmake --install` installs, in three components:
#   runtime      the library
#   development  what programs are built with: headers, the link name, CMake and pkg-config files
#   sim          the software platform with its headers, and the programs with their manual pages and
#                what completes their command lines in Bash
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/olv-twamp)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/olv-twamp)

set_target_properties(olv_interfaces PROPERTIES EXPORT_NAME interfaces)
install(TARGETS olv_interfaces olv-twamp EXPORT olv-twamp-targets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development)
install(TARGETS olv-sim EXPORT olv-twamp-sim-targets
        LIBRARY COMPONENT sim
        FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT sim)
if(TARGET olv-sim-lttng)
  install(TARGETS olv-sim-lttng LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sim)
endif()
if(TARGET twampctl)
  # Finds the libraries under any prefix.
  set_target_properties(twampctl PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
  install(TARGETS twampctl twamp-probe RUNTIME COMPONENT sim)

  # Manual pages, compressed as Debian wants them
  find_program(GZIP gzip REQUIRED)
  foreach(page IN ITEMS twampctl.1 twamp-probe.1)
    set(source ${PROJECT_SOURCE_DIR}/docs/man/${page})
    execute_process(COMMAND ${GZIP} -9nc ${source} OUTPUT_FILE ${PROJECT_BINARY_DIR}/${page}.gz
                    COMMAND_ERROR_IS_FATAL ANY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    install(FILES ${PROJECT_BINARY_DIR}/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT sim)
  endforeach()

  install(FILES apps/completion/twampctl apps/completion/twamp-probe
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT sim)
endif()

# find_package(olv-twamp)
include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/olv-twamp-config.cmake.in olv-twamp-config.cmake
                              INSTALL_DESTINATION ${config_dir}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(olv-twamp-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/olv-twamp-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/olv-twamp-config-version.cmake
        DESTINATION ${config_dir} COMPONENT development)
install(EXPORT olv-twamp-targets NAMESPACE olv-twamp:: DESTINATION ${config_dir} COMPONENT development)
install(EXPORT olv-twamp-sim-targets NAMESPACE olv-twamp:: DESTINATION ${config_dir} COMPONENT sim)

# pkg-config, with paths that begin where the .pc file is found
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE pkgconfig_to_prefix)
foreach(module IN ITEMS olv-twamp olv-sim)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/olv-twamp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/olv-sim.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT sim)
