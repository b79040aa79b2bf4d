# SPDX-License-Identifier: Apache-2.0
# Completions of the shells.
#
# zt_completions(PROGRAM [OPTIONS]): installs packaging/completions/bash/PROGRAM and
# packaging/completions/zsh/_PROGRAM. With OPTIONS, for a program whose --help comes from the option
# reader, both are made from options.in in these folders. They are in build/completions/SHELL.
function(zt_completions program)
  cmake_parse_arguments(arg "OPTIONS" "COMPONENT" "" ${ARGN})
  set(from "${PROJECT_SOURCE_DIR}/packaging/completions")
  set(to "${PROJECT_BINARY_DIR}/completions")
  set(PROGRAM "${program}")
  if(arg_OPTIONS)
    configure_file("${from}/bash/options.in" "${to}/bash/${program}" @ONLY)
    configure_file("${from}/zsh/options.in" "${to}/zsh/_${program}" @ONLY)
  else()
    configure_file("${from}/bash/${program}" "${to}/bash/${program}" COPYONLY)
    configure_file("${from}/zsh/_${program}" "${to}/zsh/_${program}" COPYONLY)
  endif()
  if(arg_COMPONENT)
    set(component COMPONENT "${arg_COMPONENT}")
  endif()
  install(FILES "${to}/bash/${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" ${component})
  install(FILES "${to}/zsh/_${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" ${component})
endfunction()
