find_package(Threads REQUIRED)

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
