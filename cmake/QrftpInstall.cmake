# What another project needs to find and link the libraries: a CMake package and pkg-config files; and all that is
# installed as one archive, which works where it is unpacked (target package).

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qrftpcore)
install(EXPORT qrftpcoreTargets NAMESPACE qrftpcore:: DESTINATION ${package_dir})
configure_package_config_file(cmake/qrftpcoreConfig.cmake.in ${PROJECT_BINARY_DIR}/qrftpcoreConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qrftpcoreConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qrftpcoreConfig.cmake ${PROJECT_BINARY_DIR}/qrftpcoreConfigVersion.cmake
    DESTINATION ${package_dir})

# The files say where they are relative to themselves, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)

# qrftp_pkgconfig(NAME LIBRARY DESCRIPTION REQUIRES)
function(qrftp_pkgconfig name library description requires)
    configure_file(cmake/library.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
if(QRFTP_HOST STREQUAL standalone) # what another host needs, its own package says: to CMake
    qrftp_pkgconfig(qrftpcore-host zorbelhost "The stand-alone host below libqrftpcore" "")
    qrftp_pkgconfig(qrftpcore qrftpcore "${PROJECT_DESCRIPTION}" "qrftpcore-host libcurl")
    qrftp_pkgconfig(qrftp-client qrftpclient "FTP, FTPS and SFTP sessions that are safe to use" "")
endif()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR TGZ)
    set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
    set(CPACK_STRIP_FILES ON)
    include(CPack)
endif()
