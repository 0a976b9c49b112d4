# cmake --install, the CMake package orvo_fr and the pkg-config modules kova, kova_fr, kova_find and
# kova_mpi_host. The installed tree may be moved: nothing in it knows the prefix.
#
# Each Debian package is a component (cmake/debian/Packages.cmake).
include(CMakePackageConfigHelpers)

install(TARGETS kova_fr kova_fr_static EXPORT orvo_fr-targets
        LIBRARY COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
install(TARGETS kova EXPORT orvo_fr-targets
        LIBRARY COMPONENT application NAMELINK_COMPONENT development)
if(TARGET kova_static)
    install(TARGETS kova_static EXPORT orvo_fr-targets ARCHIVE COMPONENT development)
endif()
if(TARGET kova_mpi_host)
    install(TARGETS kova_mpi_host EXPORT orvo_fr-targets
            LIBRARY COMPONENT host_platform NAMELINK_COMPONENT development)
endif()
if(TARGET kova_find)
    install(TARGETS kova_find kova_find_static EXPORT orvo_fr-targets
            LIBRARY COMPONENT finder NAMELINK_COMPONENT development
            ARCHIVE COMPONENT development)
endif()
set(without)
if(NOT TARGET kova_mpi_host)
    set(without PATTERN kova_mpi_host.h EXCLUDE)
endif()
install(DIRECTORY include/orvo TYPE INCLUDE COMPONENT development FILES_MATCHING PATTERN "*.h" ${without})
install(FILES LICENSE TYPE DOC)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orvo_fr")
install(EXPORT orvo_fr-targets NAMESPACE orvo_fr:: DESTINATION "${package_dir}"
        COMPONENT development)
configure_package_config_file(cmake/orvo_fr-config.cmake.in orvo_fr-config.cmake
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(orvo_fr-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/orvo_fr-config.cmake"
              "${PROJECT_BINARY_DIR}/orvo_fr-config-version.cmake"
        DESTINATION "${package_dir}" COMPONENT development)

# The way from the pkg-config files to the prefix.
file(RELATIVE_PATH PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" PC_PREFIX "${PC_PREFIX}")
set(PC_REQUIRES)
if(ORVO_NEEDS_HOST_PLATFORM)
    set(PC_REQUIRES "Requires.private: kova_mpi_host\n")
endif()
set(modules kova kova_fr)
foreach(module kova_mpi_host kova_find)
    if(TARGET ${module})
        list(APPEND modules ${module})
    endif()
endforeach()
foreach(module ${modules})
    configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${module}.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endforeach()
