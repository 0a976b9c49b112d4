# Run by CPack when the packages are made. It gives every package with a shared library scripts that call
# ldconfig, beside the trigger (triggers) that does the same once for all of them. Debian wants the trigger
# alone, and no script of a maintainer where none is needed.
cmake_policy(VERSION 3.25)
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(unpacked "${package}.unpacked")
    file(REMOVE_RECURSE "${unpacked}")
    execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${unpacked}" COMMAND_ERROR_IS_FATAL ANY)
    if(EXISTS "${unpacked}/DEBIAN/postinst")
        file(REMOVE "${unpacked}/DEBIAN/postinst" "${unpacked}/DEBIAN/postrm")
        # Packed as CPack packs it, with the same dates.
        execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip --build "${unpacked}" "${package}"
                        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endif()
    file(REMOVE_RECURSE "${unpacked}")
endforeach()
