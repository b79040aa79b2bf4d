# SPDX-License-Identifier: Apache-2.0
# Generated RPC code.
#
# zt_zidl(TARGET file.idl [PREFIX prefix] CLIENT|SERVER ...): compiles an interface definition with
# zidl and adds the client stub, the server skeleton or both to TARGET. All uses of one definition
# stand in one CMakeLists.txt and name the same prefix.
# What is generated: docs/zidl.md. The folder that it is written to is on every include path.
function(zt_zidl target definition)
  cmake_parse_arguments(arg "CLIENT;SERVER" "PREFIX" "" ${ARGN})
  get_filename_component(name "${definition}" NAME_WE)
  set(base "${ZT_GENERATED_DIR}/${name}")
  get_source_file_property(known "${base}.h" ZT_ZIDL)
  if(NOT known)
    set(prefix "")
    if(arg_PREFIX)
      set(prefix "--prefix=${arg_PREFIX}")
    endif()
    file(MAKE_DIRECTORY "${ZT_GENERATED_DIR}")
    add_custom_command(
      OUTPUT "${base}.h" "${base}_client.cpp" "${base}_server.h" "${base}_server.cpp"
      COMMAND zidl ${prefix} --out "${ZT_GENERATED_DIR}"
              "${CMAKE_CURRENT_SOURCE_DIR}/${definition}"
      DEPENDS zidl "${CMAKE_CURRENT_SOURCE_DIR}/${definition}"
      COMMENT "Generating stubs of ${name}"
      VERBATIM)
    set_source_files_properties("${base}.h" PROPERTIES ZT_ZIDL TRUE)
  endif()
  target_sources(${target} PRIVATE "${base}.h")
  if(arg_CLIENT)
    target_sources(${target} PRIVATE "${base}_client.cpp")
  endif()
  if(arg_SERVER)
    target_sources(${target} PRIVATE "${base}_server.h" "${base}_server.cpp")
  endif()
endfunction()
