# `cpack -G DEB` in the build folder makes three packages: the library, what one needs to build
# against it, and the examples with their sources.
set(CPACK_PACKAGE_NAME memblock)
set(CPACK_PACKAGE_CONTACT "memblock maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL library development)
if(MEMBLOCK_BUILD_EXAMPLES)
    list(APPEND CPACK_COMPONENTS_ALL examples)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/memblock)
set(library libmemblock${PROJECT_VERSION_MAJOR})

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmemblock-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION}), libboost-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, and what find_package and pkg-config read; the documentation."
)

set(CPACK_DEBIAN_EXAMPLES_PACKAGE_NAME memblock-examples)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SECTION science)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SUGGESTS libmemblock-dev)
set(CPACK_COMPONENT_EXAMPLES_DESCRIPTION
    "Programs that measure pictures and read objects by path; small examples in source."
)
include(CPack)
