# What leaves the objects of the static library, and so may clash with a program's own, is what the
# shared library exports, or carries this project's name.
# cmake -DNM=... -DLIBRARY=... -DLIST=... -P check_static_symbols.cmake
cmake_policy(SET CMP0057 NEW)

execute_process(COMMAND "${NM}" --defined-only --extern-only "${LIBRARY}"
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[0-9a-f]+ [A-Za-z] [^\n]+" lines "${output}")
file(STRINGS "${LIST}" exported REGEX "^[^#]")
set(wrong "")
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" name "${line}")
    if(NOT name IN_LIST exported AND NOT name MATCHES "^(_ZN4orvo|orvo_)")
        string(APPEND wrong "leaves its object, but is nobody's business: ${name}\n")
    endif()
endforeach()
if(wrong)
    message(FATAL_ERROR "\n${wrong}")
endif()
list(LENGTH lines count)
if(count EQUAL 0)
    message(FATAL_ERROR "${LIBRARY} defines nothing")
endif()
message(STATUS "${count} names leave the objects, all of them our own")
