find_package(Threads REQUIRED)
find_package(CURL 7.88 REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(EXPAT REQUIRED)

# wx-config is asked rather than CMake's own wxWidgets module, because only base and xml may be linked, without any GUI library.
find_program(WX_CONFIG NAMES wx-config-3.2 wx-config REQUIRED)
function(norla_ask_wx_config result)
    execute_process(COMMAND ${WX_CONFIG} ${ARGN}
        OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(output UNIX_COMMAND "${output}")
    set(${result} "${output}" PARENT_SCOPE)
endfunction()
norla_ask_wx_config(wx_flags --unicode=yes --cxxflags base)
norla_ask_wx_config(norla_wx_libraries --unicode=yes --libs base,xml)
# Programs that hold the static library load wxWidgets only if they use it. One item, whose parts CMake does not reorder.
list(JOIN norla_wx_libraries " " norla_wx_libraries)
set(norla_wx_libraries "-Wl,--push-state,--as-needed ${norla_wx_libraries} -Wl,--pop-state")

add_library(norla_wx INTERFACE)
# Its headers count as system headers, so that our warnings stop at their border.
string(REGEX REPLACE "-I" "-isystem" wx_flags "${wx_flags}")
target_compile_options(norla_wx INTERFACE ${wx_flags})
target_link_libraries(norla_wx INTERFACE ${norla_wx_libraries})
