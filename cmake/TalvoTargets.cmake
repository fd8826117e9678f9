# Common settings for every target of the project.

# Warnings are errors: a warning today is a bug report tomorrow.
function(talvo_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
        -Wcast-align -Woverloaded-virtual -Wconversion -Wsign-conversion
        -Wnull-dereference -Wformat=2 -Werror)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -Wduplicated-cond -Wlogical-op)
    endif()
endfunction()

# A subsystem library: talvo_add_library(NAME SOURCES... ) with its folder as
# the public include root, so users include "foundation/Settings.h".
function(talvo_add_library name)
    add_library(${name} STATIC ${ARGN})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_compile_definitions(${name} PUBLIC QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII
                                              QT_NO_CAST_TO_ASCII)
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    talvo_set_warnings(${name})
endfunction()

function(talvo_add_executable name)
    add_executable(${name} ${ARGN})
    target_compile_definitions(${name} PRIVATE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII
                                               QT_NO_CAST_TO_ASCII)
    talvo_set_warnings(${name})
endfunction()
