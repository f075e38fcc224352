# `cmake --install` puts the library, its headers, the files that CMake and pkg-config find it by, and the program
# anywhere; the copy may be moved as a whole. Components: runtime, development, tools.
include(CMakePackageConfigHelpers)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/QelUtilVideo)
install(TARGETS QelUtilVideo EXPORT QelUtilVideoTargets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_BINARY_DIR}/lib/QelUtilVideo/Info.json ${CMAKE_BINARY_DIR}/lib/QelUtilVideo/shaders.lib
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/QelUtilVideo COMPONENT runtime)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN *.h)

install(EXPORT QelUtilVideoTargets NAMESPACE QelUtilVideo:: DESTINATION ${package} COMPONENT development)
configure_package_config_file(cmake/QelUtilVideoConfig.cmake.in ${CMAKE_BINARY_DIR}/QelUtilVideoConfig.cmake
                              INSTALL_DESTINATION ${package} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/QelUtilVideoConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/QelUtilVideoConfig.cmake ${CMAKE_BINARY_DIR}/QelUtilVideoConfigVersion.cmake
        DESTINATION ${package} COMPONENT development)

# Relative to where it lies itself.
file(RELATIVE_PATH QEL_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/QelUtilVideo.pc.in ${CMAKE_BINARY_DIR}/QelUtilVideo.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/QelUtilVideo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

file(RELATIVE_PATH libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(qelvideo PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
install(TARGETS qelvideo RUNTIME COMPONENT tools)
install(FILES ${CMAKE_BINARY_DIR}/share/manual/qelvideo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${CMAKE_BINARY_DIR}/share/bash/qelvideo DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        COMPONENT tools)
install(FILES ${CMAKE_BINARY_DIR}/share/zsh/_qelvideo DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
        COMPONENT tools)
install(FILES ${CMAKE_BINARY_DIR}/share/fish/qelvideo.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
