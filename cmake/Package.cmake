# The Debian packages (tools/dev package), made from this build with CPack, installed under /usr:
#
#   libvessa-target1     the shared library, named after its soname
#   libvessa-target-dev  headers, CMake package and pkg-config file
#   vessa-target         vessa-storage and the programs a target host runs for the controller
#
# The package's own files (copyright, changelog) are in packaging/.
set(VESSA_DEB_LIB libvessa-target${VESSA_SOVERSION})
set(VESSA_DEB_DEV libvessa-target-dev)
set(VESSA_DEB_PROGRAMS vessa-target)

# Every package carries the copyright file and the changelog in its documentation directory, the
# changelog compressed as Debian's tools would (gzip -9n: no name, no time stamp).
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packaging
    COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog VERBATIM)
add_custom_target(vessa_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
foreach(component lib dev programs)
    string(TOUPPER ${component} upper)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${VESSA_DEB_${upper}} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vessa-target)
set(CPACK_PACKAGE_VENDOR "Vessa Storage Team")
set(CPACK_PACKAGE_CONTACT "Vessa Storage Team <storage-team@vessa.example>")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Vessa Storage Team <storage-team@vessa.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL lib dev programs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://vessa.example/storage")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Descriptions: the synopsis, then the long description, whose lines CPack indents (and whose empty
# lines it writes as " .").
set(VESSA_DEB_ABOUT [[
vessa_target discovers every block device of a Linux test host from the
kernel's and the volume manager's own views, joins them into one picture per
device (partitions, holders, multipath paths, logical volumes, file systems)
and decides for each whether and why it must be kept out of destructive tests:
a ten-letter exclusion string, what keeps it in use, the data it holds at
rest, and a verdict.]])

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${VESSA_DEB_LIB})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebLdconfig.cmake)
set(CPACK_COMPONENT_LIB_DESCRIPTION "storage discovery of Linux test hosts - shared library
${VESSA_DEB_ABOUT}

This package holds the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${VESSA_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${VESSA_DEB_LIB} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "storage discovery of Linux test hosts - development files
${VESSA_DEB_ABOUT}

This package holds the headers, the CMake package (find_package(vessa_target))
and the pkg-config file.")

# The volume manager's displays and ssh are asked for when present: without lvm2 the volume-group
# members and logical volumes are missing from a run (which says so), without ssh only remote hosts.
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME ${VESSA_DEB_PROGRAMS})
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_RECOMMENDS "lvm2, openssh-client")
# The Ansible fact lies in /etc: the administrator may change it, and an upgrade keeps the change.
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/conffiles)
set(CPACK_COMPONENT_PROGRAMS_DESCRIPTION "storage discovery of Linux test hosts - programs
${VESSA_DEB_ABOUT}

This package holds vessa-storage, which lists a host's storage with its
verdicts, checks and guards devices for a test and writes the XML report; and
pelo, korvo and vessa.shed.env, which a test host runs for the controlling
machine.")

include(CPack)
