find_package(Threads REQUIRED)
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fcf-protection ORVI_HAS_CF_PROTECTION)

# orvi_compile_options(target): the warnings and code generation that all our own targets share.
function(orvi_compile_options target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor
        -fno-omit-frame-pointer                       # cheap call stacks
        -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)    # paths in messages are relative to the repository
    if(ORVI_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
set(orvi_all_flags "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${build_type}}")
set(ORVI_FORTIFIES FALSE) # the C library's checks of sizes want the optimiser, and a sanitizer has its own
if(orvi_all_flags MATCHES "-O[123s]" AND NOT orvi_all_flags MATCHES "-O0|-fsanitize=")
    set(ORVI_FORTIFIES TRUE)
endif()

# orvi_harden(target): what the libraries that are installed have against attacks. tools/check-hardening looks for it.
function(orvi_harden target)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    if(ORVI_HAS_CF_PROTECTION)
        target_compile_options(${target} PRIVATE -fcf-protection)
    endif()
    if(ORVI_FORTIFIES)
        target_compile_options(${target} PRIVATE # the compiler may have another level by itself
            $<$<COMPILE_LANGUAGE:CXX>:-U_FORTIFY_SOURCE> $<$<COMPILE_LANGUAGE:CXX>:-D_FORTIFY_SOURCE=2>)
    endif()
    target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()
