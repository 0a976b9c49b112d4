# Whether the shared library records the stand-in for the platform as needed, and then looks for it beside
# itself.
# cmake -DREADELF=... -DLIBRARY=... -DWANTED=ON/OFF -P check_needed_libraries.cmake
execute_process(COMMAND "${READELF}" -d "${LIBRARY}"
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
if(NOT output MATCHES "\\(NEEDED\\)[^\n]*\\[libc\\.so")
    message(FATAL_ERROR "not what readelf says of a library:\n${output}")
endif()
set(needed OFF)
if(output MATCHES "\\(NEEDED\\)[^\n]*\\[libkova_mpi_host\\.so\\.[0-9]+\\]")
    set(needed ON)
endif()
set(beside OFF)
if(output MATCHES "\\(RUNPATH\\)[^\n]*\\[\\$ORIGIN\\]")
    set(beside ON)
endif()
if(WANTED)
    set(WANTED ON)
else()
    set(WANTED OFF)
endif()
if(NOT needed STREQUAL WANTED OR NOT beside STREQUAL WANTED)
    message(FATAL_ERROR "libkova_mpi_host wanted: ${WANTED}, needed: ${needed}, looked for beside "
                        "the library: ${beside}\n${output}")
endif()
message(STATUS "libkova_mpi_host needed and looked for beside the library: ${needed}")
