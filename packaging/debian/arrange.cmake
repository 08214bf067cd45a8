# Run by CPack on the laid-out tree. The lab wants all programs in one folder; links show the user's commands.
set(own ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/lib/ivarode)
file(GLOB programs ${own}/sbin/*)
foreach(program ${programs})
  cmake_path(GET program FILENAME name)
  file(RENAME ${program} ${own}/bin/${name})
endforeach()
file(REMOVE_RECURSE ${own}/sbin)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/ivarode-lab DESTINATION ${own}/bin)

foreach(command sbin/ivarode sbin/ivarode-plan sbin/ivarodectl bin/ivarode-lab)
  cmake_path(GET command PARENT_PATH folder)
  cmake_path(GET command FILENAME name)
  file(MAKE_DIRECTORY ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/${folder})
  file(CREATE_LINK ../lib/ivarode/bin/${name} ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/${command} SYMBOLIC)
endforeach()

# Manual pages and the completion of commands where their readers look for them.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
file(MAKE_DIRECTORY ${share})
file(RENAME ${own}/share/man ${share}/man)
file(GLOB_RECURSE pages ${share}/man/*)
execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)

file(MAKE_DIRECTORY ${share}/bash-completion/completions)
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../../lab/lab completion ivarode-lab
                OUTPUT_FILE ${share}/bash-completion/completions/ivarode-lab COMMAND_ERROR_IS_FATAL ANY)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/../../image/files/usr/share/bash-completion/completions/ivarodectl
     DESTINATION ${share}/bash-completion/completions)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/lintian/ DESTINATION ${share}/lintian/overrides)

set(papers ${share}/doc/ivarode)
file(MAKE_DIRECTORY ${papers})
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../changelog.py ${CPACK_PACKAGE_CONTACT}
                OUTPUT_FILE ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND gzip -9n ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../../LICENSE ${papers}/copyright)
