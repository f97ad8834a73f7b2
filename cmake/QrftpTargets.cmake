# How every target of the project is compiled, and what a library of it needs besides its sources.

find_program(QRFTP_CCACHE ccache)
if(QRFTP_CCACHE AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QRFTP_CCACHE})
endif()

include(cmake/QrftpHardening.cmake)

function(qrftp_target target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
        # Trace records name their source file as the project knows it, wherever it was built.
        "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
    # With a sanitizer, GCC takes values in headers of the standard library and of Boost for uninitialised.
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
        target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
    qrftp_harden(${target})
endfunction()

# qrftp_library(TARGET INCLUDE DIR EXPORT_NAME NAME): the library qrftpcore::NAME with a generated export header,
# a version and a soname, its headers installed below one folder that no other package shares.
function(qrftp_library target)
    cmake_parse_arguments(arg "" "INCLUDE;EXPORT_NAME" "" ${ARGN})
    qrftp_target(${target})
    generate_export_header(${target} BASE_NAME ${target}
        EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/generated/${target}/${target}_export.hpp)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${arg_INCLUDE}>
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated/${target}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/qrftpcore>)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${arg_EXPORT_NAME}
        INSTALL_RPATH $ORIGIN
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    add_library(qrftpcore::${arg_EXPORT_NAME} ALIAS ${target})
    install(TARGETS ${target} EXPORT qrftpcoreTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${arg_INCLUDE}/
        ${PROJECT_BINARY_DIR}/generated/${target}/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrftpcore
        FILES_MATCHING PATTERN "*.hpp")
endfunction()
