# Runs two programs, which must both succeed and print the same, and something.
# cmake [-DEMULATOR=...] -DFIRST=... -DSECOND=... -P check_same_output.cmake
foreach(program FIRST SECOND)
    execute_process(COMMAND ${EMULATOR} "${${program}}" OUTPUT_VARIABLE ${program}_output
                    RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${${program}} ends with ${result}:\n${${program}_output}")
    endif()
endforeach()
if(FIRST_output STREQUAL "" OR NOT FIRST_output STREQUAL SECOND_output)
    message(FATAL_ERROR "not the same:\n${FIRST_output}\n${SECOND_output}")
endif()
message(STATUS "both print:\n${FIRST_output}")
