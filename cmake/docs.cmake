# The target `docs` makes the reference from the public headers and the pages of docs/, in docs/html
# of the build folder. Whatever Doxygen warns of is an error.
find_package(Doxygen)
if(DOXYGEN_FOUND)
    configure_file(docs/Doxyfile.in docs/Doxyfile @ONLY)
    add_custom_target(
        docs
        COMMAND ${DOXYGEN_EXECUTABLE} ${PROJECT_BINARY_DIR}/docs/Doxyfile
        COMMENT "Making the reference in ${PROJECT_BINARY_DIR}/docs/html"
        VERBATIM
    )
endif()
