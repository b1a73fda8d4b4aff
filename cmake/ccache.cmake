# Compile through ccache where it is installed.
find_program(MEMBLOCK_CCACHE ccache DOC "Compiler cache, used if found")
if(MEMBLOCK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${MEMBLOCK_CCACHE})
endif()
