# What makes a fault in the code harder to use. Sanitizers bring checks of their own and are left alone.

include(CheckPIESupported)
check_pie_supported()

function(qrftp_harden target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
        return()
    endif()
    string(REGEX MATCH _FORTIFY_SOURCE fortified "${CMAKE_CXX_FLAGS}")
    target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
    target_compile_options(${target} PRIVATE
        -fstack-protector-strong -fstack-clash-protection -Wformat-security
        $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection>
        # The checks of the C library need the optimiser. A distribution's own flags may ask for more of them.
        $<$<NOT:$<OR:$<CONFIG:Debug>,$<BOOL:${fortified}>>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
    target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()
