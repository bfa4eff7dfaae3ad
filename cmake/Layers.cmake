# bc_layer(name [DEPENDS targets…]): the static library bc_<name> of every .cpp under src/<name>/
# (new files need no list edits). Its headers are published through a folder that holds only
# src/<name>, so a target sees the headers of exactly the layers it links.
function(bc_layer name)
  cmake_parse_arguments(LAYER "" "" "DEPENDS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${name}/*.cpp)
  set(published ${CMAKE_BINARY_DIR}/layers/${name})
  file(MAKE_DIRECTORY ${published})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${name} ${published}/${name} SYMBOLIC)
  add_library(bc_${name} STATIC ${sources})
  target_include_directories(bc_${name} PUBLIC ${published})
  target_compile_options(bc_${name} PRIVATE ${BC_WARNINGS})
  target_link_libraries(bc_${name} PUBLIC ${LAYER_DEPENDS})
endfunction()
