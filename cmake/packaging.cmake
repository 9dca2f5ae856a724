# Installation: header, library, message file, pkg-config and CMake files; a Debian package by CPack.

include(CMakePackageConfigHelpers)

# The message file is searched in /usr/lib/ and /usr/local/lib/, so the library folder is lib, not a multiarch one.
set(CMAKE_INSTALL_LIBDIR lib)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tavikstat)

install(TARGETS tavikstat EXPORT tavikstatTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES frame/tavikstat.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${message_file} DESTINATION ${CMAKE_INSTALL_LIBDIR})

configure_file(cmake/tavikstat.pc.in tavikstat.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavikstat.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT tavikstatTargets NAMESPACE tavikstat:: DESTINATION ${package_dir})
configure_package_config_file(cmake/tavikstatConfig.cmake.in tavikstatConfig.cmake INSTALL_DESTINATION ${package_dir}
                              PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(tavikstatConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tavikstatConfig.cmake ${PROJECT_BINARY_DIR}/tavikstatConfigVersion.cmake
        DESTINATION ${package_dir})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libtavikstat)
set(CPACK_PACKAGE_CONTACT "libtavikstat developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION math)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
