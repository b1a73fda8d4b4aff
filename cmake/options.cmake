# Compile options of everything built here. The bits of a result do not depend on the compiler's
# freedom: no contraction of a*b+c, and char is signed everywhere.
add_library(memblock_options INTERFACE)
target_compile_options(memblock_options INTERFACE -Wall -Wextra -Wpedantic -ffp-contract=off)
# What __FILE__ says is relative to the tree: no text names a path of the machine that built it. The
# second path is the one that a compiler cache makes of the first. A debug build keeps its paths in
# what debuggers and coverage read.
file(RELATIVE_PATH tree_from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "[^/]$" "\\0/" tree_from_build "${tree_from_build}") # empty: built in the tree
foreach(tree ${PROJECT_SOURCE_DIR}/ ${tree_from_build})
    target_compile_options(
        memblock_options
        INTERFACE $<IF:$<CONFIG:Debug>,-fmacro-prefix-map,-ffile-prefix-map>=${tree}=
    )
endforeach()
if(MEMBLOCK_WERROR)
    target_compile_options(memblock_options INTERFACE -Werror)
endif()
if(MEMBLOCK_SANITIZE)
    # -fno-sanitize=null: a description may be asked of a null object, see memblock/CMakeLists.txt.
    set(sanitize -fsanitize=${MEMBLOCK_SANITIZE} -fno-sanitize=null -fno-sanitize-recover=all)
    target_compile_options(memblock_options INTERFACE ${sanitize} -fno-omit-frame-pointer)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # What the sanitizers insert hides from g++ that a variable is set, even in std::regex.
        target_compile_options(memblock_options INTERFACE -Wno-maybe-uninitialized)
    endif()
    target_link_options(memblock_options INTERFACE ${sanitize})
endif()

# What users of the headers need as well: char elements are signed, and a test of `this` stays in.
set(MEMBLOCK_PUBLIC_OPTIONS -fsigned-char -fno-delete-null-pointer-checks)
