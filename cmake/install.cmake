# What krxpatch's package holds, below its prefix. scripts/package adds what Debian wants to know.
install(TARGETS krxpatch updkrx notes DESTINATION lib/krxpatch)
install(DIRECTORY samples/ DESTINATION share/krxpatch)
install(FILES docs/operator.md docs/rehearsal.md docs/formats.md docs/json.md docs/export_agent.lss
  DESTINATION share/doc/krxpatch)
set(pages ${PROJECT_BINARY_DIR}/host/pages)
install(FILES ${pages}/krxpatch.1 DESTINATION share/man/man1)
install(FILES ${pages}/krxpatch.bash DESTINATION share/bash-completion/completions RENAME krxpatch)

# The program looks for the samples beside itself.
function(install_link target folder name)
  file(CREATE_LINK ${target} ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/links/${name} DESTINATION ${folder})
endfunction()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
install_link(../lib/krxpatch/krxpatch bin krxpatch)
install_link(../../share/krxpatch lib/krxpatch samples)
