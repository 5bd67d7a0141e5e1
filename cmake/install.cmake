include(CMakePackageConfigHelpers)

install(TARGETS norla EXPORT norlaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(norla_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/norla)
install(EXPORT norlaTargets NAMESPACE norla:: DESTINATION ${norla_package_folder})
configure_package_config_file(cmake/norlaConfig.cmake.in norlaConfig.cmake INSTALL_DESTINATION ${norla_package_folder})
write_basic_package_version_file(norlaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/norlaConfig.cmake ${PROJECT_BINARY_DIR}/norlaConfigVersion.cmake
    DESTINATION ${norla_package_folder})

# The prefix is found from the place of the file, so that the installed tree can be moved.
set(norla_pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH norla_prefix_from_pkgconfig /${norla_pkgconfig_folder} /)
if(norla_type STREQUAL STATIC)
    # By name and not by "Requires": "pkg-config --static libcurl" names libraries that nobody has who links the shared libcurl.
    list(JOIN norla_wx_libraries " " norla_static_libraries)
    string(APPEND norla_static_libraries " -lexpat -lcurl -lssl -lcrypto")
else()
    set(norla_pkgconfig_requires "libcurl >= 7.88")
endif()
configure_file(cmake/norla.pc.in norla.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norla.pc DESTINATION ${norla_pkgconfig_folder})
