# nnotes.dll for Windows programs under Wine: a library of the host, whose exported functions have the Windows calling
# convention, and the file that stands for it beside the programs.
target_compile_definitions(notes_engine PUBLIC NOTES_MS_ABI)
add_library(notes_objects OBJECT ${api})
target_link_libraries(notes_objects PRIVATE notes_engine)

set(spec ${CMAKE_CURRENT_BINARY_DIR}/nnotes.spec)
list(TRANSFORM operations PREPEND "@ cdecl " OUTPUT_VARIABLE lines)
list(TRANSFORM controls PREPEND "@ cdecl " OUTPUT_VARIABLE controlLines)
list(APPEND lines ${controlLines})
list(TRANSFORM lines APPEND "()") # arguments matter on 32-bit systems only
list(JOIN lines "\n" lines)
file(CONFIGURE OUTPUT ${spec} CONTENT "${lines}\n" @ONLY)

set(library ${CMAKE_BINARY_DIR}/x86_64-unix/nnotes.dll.so)
set(placeholder ${CMAKE_BINARY_DIR}/nnotes.dll)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/x86_64-unix)
add_custom_command(OUTPUT ${library} ${placeholder}
  COMMAND wineg++ -shared $<TARGET_OBJECTS:notes_objects> $<TARGET_FILE:notes_engine> ${spec} -o ${library}
    ${SQLITE_LDFLAGS} ${ICU_LDFLAGS} ${EXPAT_LDFLAGS}
  COMMAND wineg++ -shared ${spec} -o ${placeholder} -Wb,--fake-module
  DEPENDS notes_objects $<TARGET_OBJECTS:notes_objects> notes_engine ${spec}
  COMMAND_EXPAND_LISTS VERBATIM)
add_custom_target(nnotes ALL DEPENDS ${library} ${placeholder})
