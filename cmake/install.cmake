# Headers, library, and what find_package(memblock CONFIG) and pkg-config read. The installed tree
# may be moved: both find the rest from where they lie. Three components, which are the three
# packages of cmake/package.cmake: library, development, examples.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/memblock)
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(
    TARGETS memblock
    EXPORT memblockTargets
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    FILE_SET HEADERS COMPONENT development
    FILE_SET generated_headers COMPONENT development
)
install(
    EXPORT memblockTargets
    NAMESPACE memblock::
    DESTINATION ${config_dir}
    COMPONENT development
)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/memblockConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cmake/memblockConfig.cmake INSTALL_DESTINATION ${config_dir}
)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/cmake/memblockConfigVersion.cmake COMPATIBILITY SameMajorVersion
)
install(
    FILES ${PROJECT_BINARY_DIR}/cmake/memblockConfig.cmake
          ${PROJECT_BINARY_DIR}/cmake/memblockConfigVersion.cmake
    DESTINATION ${config_dir}
    COMPONENT development
)

string(JOIN " " pc_options ${MEMBLOCK_PUBLIC_OPTIONS})
file(RELATIVE_PATH pc_prefix /prefix/${pc_dir} /prefix)
configure_file(
    ${PROJECT_SOURCE_DIR}/cmake/memblock.pc.in ${PROJECT_BINARY_DIR}/cmake/memblock.pc @ONLY
)
install(
    FILES ${PROJECT_BINARY_DIR}/cmake/memblock.pc
    DESTINATION ${pc_dir}
    COMPONENT development
)

install(
    FILES README.md CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development
)
install(
    DIRECTORY docs
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development
    FILES_MATCHING
    PATTERN *.md
)
