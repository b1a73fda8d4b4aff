# Compile through ccache where it is installed. The sloppiness lets it work with precompiled
# headers, which it refuses otherwise.
find_program(MEMBLOCK_CCACHE ccache DOC "Compiler cache, used if found")
if(MEMBLOCK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND}
        -E
        env
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        ${MEMBLOCK_CCACHE}
    )
endif()
