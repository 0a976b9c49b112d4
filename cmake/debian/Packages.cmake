# Debian packages: the target "package" of the presets "package" and "package-arm".
#
#   libkova1            the library for applications, of which the interface alone is to be seen
#   libkova-fr1         the library with its kernels, for the machine that recognises
#   libkova-find1       the library that finds faces in whole pictures
#   libkova-mpi-host1   the stand-in for the camera platform, for PCs and emulators
#   libkova-fr-dev      headers, static library, CMake and pkg-config files
#   kova-fr             the command line, not in a cross build
#
# A package is a component of cmake/Install.cmake with its copyright and changelog.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Orvo FR developers <orvo-fr@orvo-fr.invalid>")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Debian's name for the machine. For the camera that is armel: softfp code uses the floating-point
# unit, yet passes floats in integer registers, which is armel's calling convention; armhf's is
# another. That Debian's own armel runs on older processors than ours needs does not matter here.
execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -dumpmachine
                OUTPUT_VARIABLE DEBIAN_MACHINE OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND dpkg-architecture -f -t "${DEBIAN_MACHINE}" -q DEB_HOST_ARCH
                OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    return() # not a Debian machine
endif()
# The date of cmake/debian/changelog.in, in seconds.
file(STRINGS cmake/debian/changelog.in CHANGELOG_DATE REGEX "^ -- ")
string(REGEX REPLACE "^ -- [^ ]+  " "" CHANGELOG_DATE "${CHANGELOG_DATE}")
execute_process(COMMAND date --utc "--date=${CHANGELOG_DATE}" +%s
                OUTPUT_VARIABLE CHANGELOG_DATE OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
configure_file(cmake/debian/cpack_settings.cmake.in cpack_settings.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/cpack_settings.cmake")
if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/without_scripts.cmake")

configure_file(cmake/debian/changelog.in changelog @ONLY)
# Without the time, so that the same sources give the same package.
execute_process(COMMAND gzip -9 --no-name --force --keep "${PROJECT_BINARY_DIR}/changelog"
                COMMAND_ERROR_IS_FATAL ANY)

# debian_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION DEPENDS...): a component as a package.
function(debian_package component name section summary description)
    install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" RENAME copyright
            COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES "${PROJECT_BINARY_DIR}/changelog.gz"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}"
            COMPONENT ${component} EXCLUDE_FROM_ALL)
    string(TOUPPER ${component} key)
    set(depends)
    foreach(package ${ARGN})
        list(APPEND depends "${package} (= ${PROJECT_VERSION})")
    endforeach()
    list(JOIN depends ", " depends)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

set(processors)
if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL "armel")
    set(processors "
.
This build needs an ARMv7-A processor with NEON and VFPv4.")
endif()
set(platform "
platform's own libraries, or on a PC to libkova-mpi-host1.")
set(needed)
if(ORVO_NEEDS_HOST_PLATFORM)
    set(platform "
program; libkova-mpi-host1 has those that it does not define.")
    set(needed libkova-mpi-host1)
endif()
debian_package(application libkova1 libs "on-device face recognition, for applications"
    "Faces in whole pictures, 128 floats for each, and the most alike of many, by
small int8 networks in memory that the caller hands in. It exports its
interface alone. The camera platform's functions (KOVA_MPI_*) are left to
the${platform}${processors}"
    ${needed})
set(CPACK_DEBIAN_APPLICATION_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
debian_package(library libkova-fr1 libs "on-device face recognition"
    "A grey picture of a face in, 128 floats out, and the distance of two of these.
Two small int8 networks on hand-written kernels, in 1.4 MB of memory that the
caller hands in. The camera platform's functions (KOVA_MPI_*) are left to the${platform}${processors}"
    ${needed})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
debian_package(host_platform libkova-mpi-host1 libs "stand-in for the camera platform of libkova-fr1"
    "Media memory, scaler and forward white-box cipher in software, so that
applications of libkova-fr1 run on a PC or under an emulator.${processors}")
set(CPACK_DEBIAN_HOST_PLATFORM_PACKAGE_CONTROL_EXTRA
    "${CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA}")
set(finder)
if(TARGET kova_find)
    set(finder libkova-find1)
    debian_package(finder libkova-find1 libs "faces in whole pictures for libkova-fr1"
        "Boxes, landmarks and quality of the faces in a grey picture of any size, and
their upright crops for libkova-fr1, in memory that the caller hands in.${processors}"
        libkova-fr1)
    set(CPACK_DEBIAN_FINDER_PACKAGE_CONTROL_EXTRA "${CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA}")
endif()
debian_package(development libkova-fr-dev libdevel "on-device face recognition, development files"
    "Headers, the static libraries, and files for CMake (orvo_fr) and pkg-config
(kova, kova_fr, kova_find, kova_mpi_host). Applications link libkova.${processors}"
    libkova1 libkova-fr1 ${finder} libkova-mpi-host1)
if(TARGET kova_fr_cli)
    debian_package(tools kova-fr graphics "compare faces in pictures on the command line"
        "Finds the faces in pictures of all usual kinds, compares them, and keeps
galleries of known people, through libkova-fr1 and libkova-find1. HEIC and AVIF
are read where libheif1 is installed."
        libkova-fr1 ${finder} libkova-mpi-host1)
    if(TARGET kova_fr_serve)
        # Not enabled, and so without scripts: whoever wants it says so by systemctl. Installed trees
        # may be moved, but a unit names its program, so it is part of the package alone.
        install(FILES cmake/debian/kova-fr-serve.service DESTINATION lib/systemd/system
                COMPONENT tools EXCLUDE_FROM_ALL)
        install(FILES docs/SERVICE.md DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/kova-fr"
                COMPONENT tools EXCLUDE_FROM_ALL)
    endif()
    set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS libheif1)
endif()
include(CPack)
