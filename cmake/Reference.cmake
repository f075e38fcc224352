# What a comment of a public header refers to has to be there: warnings are errors.
find_program(DOXYGEN doxygen)
if(DOXYGEN)
  configure_file(docs/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile @ONLY)
  add_custom_target(reference
                    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/reference
                    COMMAND ${DOXYGEN} ${CMAKE_BINARY_DIR}/Doxyfile VERBATIM)
endif()
