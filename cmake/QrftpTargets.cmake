# How every target of the project is compiled, and what a library of it needs besides its sources.

find_program(QRFTP_CCACHE ccache)
if(QRFTP_CCACHE AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QRFTP_CCACHE})
endif()

include(cmake/QrftpHardening.cmake)
file(RELATIVE_PATH source_from_build "${CMAKE_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")

function(qrftp_target target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    # The presets of developers make errors of them. A compiler that people have may warn of more.
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        # Trace records name their source file as the project knows it, wherever it was built. A compiler's cache
        # may give paths as the build folder sees them.
        "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=" "-fmacro-prefix-map=${source_from_build}/=")
    # One source made of many sees names of the others.
    if(CMAKE_UNITY_BUILD)
        target_compile_options(${target} PRIVATE -Wno-shadow)
    endif()
    # With a sanitizer, GCC takes values in headers of the standard library and of Boost for uninitialised.
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
        target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
    qrftp_harden(${target})
endfunction()

# The libraries lie as they will when installed, and what is built finds them in the same way: in the run path of a
# program that is still to be changed, CMake leaves an empty entry, which is the working folder.
set(built_as_installed
    BUILD_WITH_INSTALL_RPATH ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})

# qrftp_library(TARGET INCLUDE DIR… EXPORT_NAME NAME): the library qrftpcore::NAME with a generated export header, a
# version and a soname, the names that cmake/TARGET.map lets out, and its headers, installed below a folder that no
# other package shares. Every one of them compiles alone: all_verify_interface_header_sets builds that
# (CMAKE_VERIFY_INTERFACE_HEADER_SETS).
function(qrftp_library target)
    cmake_parse_arguments(arg "" "EXPORT_NAME" "INCLUDE" ${ARGN})
    qrftp_target(${target})
    set(generated ${PROJECT_BINARY_DIR}/generated/${target})
    generate_export_header(${target} BASE_NAME ${target} EXPORT_FILE_NAME ${generated}/${target}_export.hpp)
    list(TRANSFORM arg_INCLUDE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    list(TRANSFORM arg_INCLUDE APPEND /*.h* OUTPUT_VARIABLE headers)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${headers})
    target_sources(${target} PUBLIC FILE_SET HEADERS
        BASE_DIRS ${arg_INCLUDE} ${generated}
        FILES ${headers} ${generated}/${target}_export.hpp)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${arg_EXPORT_NAME}
        ${built_as_installed}
        INSTALL_RPATH $ORIGIN
        VERSION ${PROJECT_VERSION}
        # Below 1.0, each minor version may change the interface.
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
        LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/${target}.map")
    add_library(qrftpcore::${arg_EXPORT_NAME} ALIAS ${target})
    if(QRFTP_INSTALL)
        install(TARGETS ${target} EXPORT qrftpcoreTargets
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrftpcore
            INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrftpcore)
    endif()
endfunction()
