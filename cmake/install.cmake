include(CMakePackageConfigHelpers)

if(norla_type STREQUAL SHARED)
    # Takes the place of the link that "-lnorla" would find. Linkers look for both libraries beside it.
    set(norla_namelink NAMELINK_SKIP)
    set(norla_soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    file(WRITE ${PROJECT_BINARY_DIR}/installed/libnorla.so
        "/* GNU ld script */\nINPUT(libnorla.so.${norla_soversion} AS_NEEDED(libnorla-s3.so.${norla_soversion}))\n")
    install(FILES ${PROJECT_BINARY_DIR}/installed/libnorla.so DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(TARGETS norla_whole norla norla_s3 EXPORT norlaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ${norla_namelink}
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
    set(norla_s3_libraries "-lnorla-s3 ${norla_wx_libraries} -lexpat")
    set(norla_static_libraries "-lcurl -lssl -lcrypto")
else()
    set(norla_pkgconfig_requires "libcurl >= 7.88")
endif()
configure_file(cmake/norla.pc.in norla.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norla.pc DESTINATION ${norla_pkgconfig_folder})
