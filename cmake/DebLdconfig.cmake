# Run by CPack after it has made the packages (CPACK_POST_BUILD_SCRIPTS). CPack gives a package with a
# shared library under /usr/lib a postinst and a postrm that call ldconfig; Debian runs ldconfig
# through the trigger the package declares (packaging/triggers) instead. The package is rebuilt
# without the two scripts, its files and their checksums unchanged.
foreach(deb ${CPACK_PACKAGE_FILES})
    get_filename_component(name ${deb} NAME)
    if(NOT name MATCHES "^libvessa-target[0-9]+_")
        continue()
    endif()
    set(tree ${deb}.tree)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb -R ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    execute_process(COMMAND dpkg-deb --root-owner-group -b ${tree} ${deb} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
