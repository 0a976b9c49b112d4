# Compares what the shared library exports with the checked-in list, both ways; with STATIC what a static one
# gives to the linker.
# cmake -DNM=... -DLIBRARY=... -DLIST=... [-DSTATIC=ON] -P check_exported_symbols.cmake
cmake_policy(SET CMP0057 NEW)

set(which -D)
if(STATIC)
    set(which --extern-only)
endif()
execute_process(COMMAND "${NM}" ${which} --defined-only "${LIBRARY}"
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(exported "")
foreach(line IN LISTS lines)
    if(STATIC AND line MATCHES "\\.o:$")
        continue() # which object of the archive
    endif()
    if(NOT line MATCHES "^[0-9a-f]+ ([A-Za-z]) ([^ ]+)$")
        message(FATAL_ERROR "not a line of nm: ${line}")
    endif()
    set(name "${CMAKE_MATCH_2}")
    # What the linker puts into every shared library on some targets is none of ours.
    if(NOT name MATCHES "^(_init|_fini|_edata|_end|__bss_start|__bss_start__|__bss_end__|_bss_end__|__end__)$")
        list(APPEND exported "${name}")
    endif()
endforeach()

file(STRINGS "${LIST}" expected REGEX "^[^#]")
if(NOT expected)
    message(FATAL_ERROR "${LIST} lists nothing")
endif()

set(wrong "")
foreach(name IN LISTS exported)
    if(NOT name IN_LIST expected)
        string(APPEND wrong "exported, but not listed: ${name}\n")
    endif()
endforeach()
foreach(name IN LISTS expected)
    if(NOT name IN_LIST exported)
        string(APPEND wrong "listed, but not exported: ${name}\n")
    endif()
endforeach()
if(wrong)
    message(FATAL_ERROR "\n${wrong}")
endif()
list(LENGTH exported count)
message(STATUS "${count} exported names are as listed")
