# Refuses build folders in which something else would be built than was asked for.

file(REAL_PATH ${CMAKE_CURRENT_BINARY_DIR} build_folder)
file(REAL_PATH ${CMAKE_CURRENT_SOURCE_DIR} source_folder)
if(build_folder STREQUAL source_folder)
    message(FATAL_ERROR "libnorla is not built among its sources. Name another folder, as in 'cmake -B build', "
        "after removing CMakeCache.txt and CMakeFiles, which stand in the way now, from '${source_folder}'.")
endif()

# CMake forgets all that a preset says when it meets a folder of another compiler, and goes on without it. What the preset
# puts into the environment is there still. A project around this one has presets of its own.
if(CMAKE_SOURCE_DIR STREQUAL CMAKE_CURRENT_SOURCE_DIR AND DEFINED ENV{NORLA_PRESET}
        AND NOT "$ENV{NORLA_PRESET}" STREQUAL "${NORLA_PRESET}")
    message(FATAL_ERROR "The settings of the preset '$ENV{NORLA_PRESET}' are not in force in '${build_folder}', which was "
        "made without them, as for another compiler. Make it anew: 'cmake --fresh --preset $ENV{NORLA_PRESET}'.")
endif()
