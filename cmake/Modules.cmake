# One module of the library: the sources of one folder, without its subfolders, compiled once and linked
# both into the shared library and into the tests that need its inside.
#
#   qel_module(NAME folder/of/module [LINK targets …])
function(qel_module name folder)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${folder}/*.cpp)
  if(NOT sources)
    message(FATAL_ERROR "src/${folder} holds no sources")
  endif()
  add_library(${name} OBJECT ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC Threads::Threads ${ARG_LINK})
  set_property(GLOBAL APPEND PROPERTY QEL_MODULES ${name})
endfunction()
