# What `cmake --install` puts where, by Debian package (component): the shared library (lib), what a
# program needs to build against it (dev); the programs install themselves (programs).

# The installed interface: the exported classes and the headers their declarations include, under
# <includedir>/vessa_target, where they include each other as "target/Host.h". The check below keeps
# the list closed: a public header that starts to include another one fails the configuration until
# that header is listed here (and its symbols are marked VESSA_API).
set(VESSA_PUBLIC_HEADERS
    target/Host.h target/Storage.h target/Property.h target/Verdict.h target/LicenseInfo.h
    target/DiscoveryReport.h target/Identity.h
    platform/Export.h platform/Exception.h platform/Net.h platform/Pipe.h platform/Process.h
    platform/Thread.h platform/hax/Hax.h platform/view/SystemView.h platform/view/Signatures.h)
foreach(header ${VESSA_PUBLIC_HEADERS})
    file(STRINGS ${PROJECT_SOURCE_DIR}/${header} includes REGEX "^#include \"")
    foreach(line ${includes})
        string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
        if(NOT included IN_LIST VESSA_PUBLIC_HEADERS)
            message(FATAL_ERROR "${header} includes ${included}, which is not an installed header")
        endif()
    endforeach()
    get_filename_component(dir ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vessa_target/${dir} COMPONENT dev)
endforeach()

install(TARGETS vessa_target EXPORT vessa_targetTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev)
install(EXPORT vessa_targetTargets NAMESPACE vessa_target::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vessa_target COMPONENT dev)
configure_package_config_file(cmake/vessa_targetConfig.cmake.in
    ${PROJECT_BINARY_DIR}/vessa_targetConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vessa_target)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vessa_targetConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vessa_targetConfig.cmake
              ${PROJECT_BINARY_DIR}/vessa_targetConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vessa_target COMPONENT dev)

# pkg-config: the prefix is found from where the file lies, so an installation moved or made with
# `cmake --install --prefix DIR` still names its own directories.
set(VESSA_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
string(REGEX REPLACE "[^/]+" ".." VESSA_PKGCONFIG_TO_PREFIX "${VESSA_PKGCONFIG_DIR}")
configure_file(cmake/vessa_target.pc.in ${PROJECT_BINARY_DIR}/vessa_target.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vessa_target.pc DESTINATION ${VESSA_PKGCONFIG_DIR} COMPONENT dev)
