# Run by CPack after packing: CPack 3.25 writes the debug-symbol package's
# md5sums with its own build paths and gives it no documentation. Repacked
# with relative paths and its documentation folder pointing at the program's,
# as Debian's own -dbgsym packages have it.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(NOT package MATCHES "-dbgsym_.*\\.ddeb$")
        continue()
    endif()
    set(tree ${CPACK_TOPLEVEL_DIRECTORY}/dbgsym-fix)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb -R ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(READ ${tree}/DEBIAN/md5sums sums)
    string(REGEX REPLACE "  [^\n]*/(usr/lib/debug/)" "  \\1" sums "${sums}")
    file(WRITE ${tree}/DEBIAN/md5sums "${sums}")
    file(MAKE_DIRECTORY ${tree}/usr/share/doc)
    file(CREATE_LINK ${CPACK_PACKAGE_NAME} ${tree}/usr/share/doc/${CPACK_PACKAGE_NAME}-dbgsym SYMBOLIC)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -b ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
