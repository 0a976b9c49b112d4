# GoogleTest's header, read once for all test programs of a build: reading it is a third of what compiling a test takes.
#
# orvo_precompiled(TARGET) gives it to a program. Its files include what they need all the same; `./run lint` reads
# each of them by itself. The headers of the command line's libraries gain nothing by it: most of what they take is
# their templates, which each file makes anew.
#
# Not with a compiler launcher such as ccache: it knows the objects already, and would have to be told to trust
# precompiled headers. Not for browsers, where there are few programs.
set(default ON)
if(CMAKE_CXX_COMPILER_LAUNCHER OR EMSCRIPTEN OR ORVO_COVERAGE)
    set(default OFF)
endif()
option(ORVO_PRECOMPILE_TESTS "Read GoogleTest's header once for all tests" ${default})

# A program, since programs and libraries are compiled with other flags. It has no other use.
if(ORVO_PRECOMPILE_TESTS)
    add_executable(precompiled_header EXCLUDE_FROM_ALL support/precompiled_header.cpp)
    target_link_libraries(precompiled_header PRIVATE orvo_settings GTest::gtest)
    target_precompile_headers(precompiled_header PRIVATE
        <gtest/gtest.h> <algorithm> <filesystem> <functional>)
endif()

# A folder that sets ORVO_PRECOMPILE_TESTS to OFF, since its flags are others, does without.
function(orvo_precompiled name)
    get_target_property(files ${name} SOURCES)
    # With a file in C, CMake would look for a header that is precompiled for C as well.
    if(ORVO_PRECOMPILE_TESTS AND NOT files MATCHES "\\.c(;|$)")
        target_precompile_headers(${name} REUSE_FROM precompiled_header)
    endif()
endfunction()
