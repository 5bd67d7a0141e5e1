# Programs link norla::norla. Behind it are libnorla and libnorla-s3, which only those programs load that use it:
# docs/decisions/0012-s3-beside.md.

function(norla_add_library target file_name export_name)
    add_library(${target} ${norla_type})
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${file_name}
        EXPORT_NAME ${export_name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${norla_abi}
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON # the static library may become a part of a shared one
        DEFINE_SYMBOL "" # both are compiled alike
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/norla.map
        VERIFY_INTERFACE_HEADER_SETS ON)
    target_link_libraries(${target} PRIVATE
        $<BUILD_INTERFACE:norla_warnings> $<BUILD_INTERFACE:norla_sanitizers> $<BUILD_INTERFACE:norla_coverage>)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${target} PUBLIC cxx_std_20)
    # The library calls its own functions directly: nobody is meant to replace one of them from outside.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    target_link_options(${target} PRIVATE
        LINKER:-Bsymbolic-functions LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/norla.map)
endfunction()

norla_add_library(norla norla base)
target_link_libraries(norla PRIVATE OpenSSL::SSL OpenSSL::Crypto PUBLIC CURL::libcurl Threads::Threads)

norla_add_library(norla_s3 norla-s3 s3)
target_link_libraries(norla_s3 PRIVATE $<BUILD_INTERFACE:norla_wx> EXPAT::EXPAT PUBLIC norla)

add_library(norla_whole INTERFACE)
add_library(norla::norla ALIAS norla_whole)
set_target_properties(norla_whole PROPERTIES EXPORT_NAME norla)
if(norla_type STREQUAL STATIC)
    target_link_libraries(norla_s3 INTERFACE "$<INSTALL_INTERFACE:${norla_wx_libraries}>")
    target_link_libraries(norla_whole INTERFACE norla_s3)
else()
    # Scripts for the linker and not flags, whose order CMake does not keep.
    set(norla_link_script ${PROJECT_BINARY_DIR}/norla-s3.ld)
    file(GENERATE OUTPUT ${norla_link_script}
        CONTENT "/* GNU ld script */\nINPUT(AS_NEEDED(\"$<TARGET_LINKER_FILE:norla_s3>\"))\n")
    target_link_libraries(norla_whole INTERFACE norla
        $<BUILD_INTERFACE:${norla_link_script}> $<INSTALL_INTERFACE:$<INSTALL_PREFIX>/${CMAKE_INSTALL_LIBDIR}/libnorla.so>)
    add_dependencies(norla_whole norla_s3)
endif()
