# 64-bit x86 with musl in place of glibc, by Debian's musl-tools, which have a C library and no C++ library: only
# what needs none can be built, which the library is. GCC's C++ headers were configured for glibc; what they ask
# of it besides declarations is answered here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_FLAGS_INIT
    "-specs=/usr/lib/x86_64-linux-musl/musl-gcc.specs -nostdinc++ -isystem /usr/include/c++/${version} -isystem /usr/include/x86_64-linux-gnu/c++/${version} -D__GLIBC_PREREQ\\(major,minor\\)=0 -D__locale_t=locale_t -Dpthread_cond_clockwait\\(c,m,clock,t\\)=pthread_cond_timedwait\\(c,m,t\\) -Dpthread_mutex_clocklock\\(m,clock,t\\)=pthread_mutex_timedlock\\(m,t\\)")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,--as-needed")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
