# `cpack -G DEB` in the build folder makes three Debian packages of a build that was configured for them:
# `cmake --preset debian`.
set(CPACK_PACKAGE_NAME qelutilvideo)
set(CPACK_PACKAGE_VENDOR "QelUtilVideo")
set(CPACK_PACKAGE_CONTACT "QelUtilVideo developers <qelutilvideo@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqelutilvideo${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library. Views are drawn through Vulkan or by OpenGL, whichever has a driver.")
# What is loaded when it is needed, which nothing in the library tells.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libvulkan1, mesa-vulkan-drivers | vulkan-icd, libegl1, libopengl0, libgl1-mesa-dri")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqelutilvideo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "What programs that use the library are built with.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqelutilvideo${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qelvideo)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "The program qelvideo: lists, captures and shows displays, windows and cameras.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libqelutilvideo${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
include(CPack)
