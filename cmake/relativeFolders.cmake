# Some builders name folders from the root of the file system. The installed tree can be moved: it knows its folders from
# its prefix.
foreach(norla_folder CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
    cmake_path(IS_ABSOLUTE ${norla_folder} norla_is_absolute)
    if(NOT norla_is_absolute)
        continue()
    endif()
    cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX "${${norla_folder}}" NORMALIZE norla_is_inside)
    if(NOT norla_is_inside)
        message(FATAL_ERROR "${norla_folder} is '${${norla_folder}}', which is not in '${CMAKE_INSTALL_PREFIX}'.")
    endif()
    file(RELATIVE_PATH ${norla_folder} "${CMAKE_INSTALL_PREFIX}" "${${norla_folder}}")
endforeach()
