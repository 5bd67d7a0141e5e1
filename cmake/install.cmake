include(CMakePackageConfigHelpers)

# Both kinds of libraries can be installed in one place, the static ones first: of the files that both kinds have, those of
# the shared ones serve for both.
if(norla_type STREQUAL SHARED)
    set(norla_export norlaTargets)
    # Takes the place of the link that "-lnorla" would find. Linkers look for both libraries beside it.
    set(norla_namelink NAMELINK_SKIP)
    file(WRITE ${PROJECT_BINARY_DIR}/installed/libnorla.so
        "/* GNU ld script */\nINPUT(libnorla.so.${norla_abi} AS_NEEDED(libnorla-s3.so.${norla_abi}))\n")
    install(FILES ${PROJECT_BINARY_DIR}/installed/libnorla.so DESTINATION ${CMAKE_INSTALL_LIBDIR})
else()
    set(norla_export norlaStaticTargets)
endif()
install(TARGETS norla_whole norla norla_s3 EXPORT ${norla_export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ${norla_namelink}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(norla_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/norla)
install(EXPORT ${norla_export} NAMESPACE norla:: DESTINATION ${norla_package_folder})
configure_package_config_file(cmake/norlaConfig.cmake.in norlaConfig.cmake INSTALL_DESTINATION ${norla_package_folder})
write_basic_package_version_file(norlaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/norlaConfig.cmake ${PROJECT_BINARY_DIR}/norlaConfigVersion.cmake
    DESTINATION ${norla_package_folder})

# The prefix is found from the place of the file, so that the installed tree can be moved.
set(norla_pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH norla_prefix_from_pkgconfig /${norla_pkgconfig_folder} /)
#   norla_install_pkgconfig(NAME LIBRARIES REQUIRES)
function(norla_install_pkgconfig norla_pkgconfig_name norla_pkgconfig_libraries norla_pkgconfig_requires)
    configure_file(cmake/norla.pc.in ${norla_pkgconfig_name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${norla_pkgconfig_name}.pc DESTINATION ${norla_pkgconfig_folder})
endfunction()
if(norla_type STREQUAL STATIC)
    # By name and not by "Requires": "pkg-config --static libcurl" names libraries that nobody has who links the shared libcurl.
    set(norla_s3_needs "${norla_wx_libraries} -lexpat")
    set(norla_base_needs "-lcurl -lssl -lcrypto")
    norla_install_pkgconfig(norla "-lnorla-s3 ${norla_s3_needs} -lnorla ${norla_base_needs}" "")
    # The static libraries also where the shared ones lie beside them.
    norla_install_pkgconfig(norla-static
        "-l:libnorla-s3.a ${norla_s3_needs} -l:libnorla.a ${norla_base_needs}" "")
else()
    norla_install_pkgconfig(norla "-lnorla" "libcurl >= 7.88")
endif()
