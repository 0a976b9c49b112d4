# cmake --install, the CMake package orvo_fr and the pkg-config module kova_fr.
include(CMakePackageConfigHelpers)

install(TARGETS kova_fr kova_fr_static kova_mpi_host EXPORT orvo_fr-targets)
install(DIRECTORY include/orvo TYPE INCLUDE FILES_MATCHING PATTERN "*.h")
install(FILES LICENSE TYPE DOC)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orvo_fr")
install(EXPORT orvo_fr-targets NAMESPACE orvo_fr:: DESTINATION "${package_dir}")
configure_package_config_file(cmake/orvo_fr-config.cmake.in orvo_fr-config.cmake
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(orvo_fr-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/orvo_fr-config.cmake"
              "${PROJECT_BINARY_DIR}/orvo_fr-config-version.cmake"
        DESTINATION "${package_dir}")

configure_file(cmake/kova_fr.pc.in kova_fr.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kova_fr.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
