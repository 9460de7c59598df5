# import_library(NAME file.def): an import library from a list of names.
function(import_library name definition)
  set(library ${CMAKE_CURRENT_BINARY_DIR}/lib${name}.a)
  add_custom_command(OUTPUT ${library}
    COMMAND ${CMAKE_DLLTOOL} -d ${CMAKE_CURRENT_SOURCE_DIR}/${definition} -l ${library}
    DEPENDS ${definition} VERBATIM)
  add_custom_target(${name}_file DEPENDS ${library})
  add_library(${name} INTERFACE)
  target_link_libraries(${name} INTERFACE ${library})
  add_dependencies(${name} ${name}_file)
endfunction()
import_library(nnotes_import nnotes.def)
import_library(embedded_notes_import embedded_notes.def)

target_link_libraries(notes_api INTERFACE nnotes_import)
add_library(notes INTERFACE)
target_include_directories(notes INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include)
target_link_libraries(notes INTERFACE notes_api embedded_notes_import)

# The library itself. Wine finds the placeholder beside the programs, and the host's library below WINEDLLPATH.
include(ExternalProject)
set(winelib ${CMAKE_BINARY_DIR}/winelib)
ExternalProject_Add(nnotes
  SOURCE_DIR ${PROJECT_SOURCE_DIR}
  BINARY_DIR ${winelib}
  CMAKE_ARGS -G ${CMAKE_GENERATOR} -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE} -DUPDKRX_WINELIB=ON
  BUILD_ALWAYS ON
  BUILD_BYPRODUCTS ${winelib}/nnotes.dll
  INSTALL_COMMAND ${CMAKE_COMMAND} -E copy_if_different ${winelib}/nnotes.dll ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}
)
