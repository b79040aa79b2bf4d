# SPDX-License-Identifier: Apache-2.0
# Generated RPC code.
#
# zt_zidl(TARGET file.idl [PREFIX prefix] CLIENT|SERVER ...): compiles an interface definition with
# zidl and adds the client stub, the server skeleton or both to TARGET. All uses of one definition
# stand in one CMakeLists.txt and name the same prefix.
#
# For idl/rep.idl with prefix zt_v2_ the build makes, in one folder that is on every include path:
#
#   rep.h           types, constants and client declarations
#   rep_client.cpp  client stubs (CLIENT)
#   rep_server.h    class rep_Server (SERVER)
#   rep_server.cpp
#
# rep.h declares, in the global namespace:
#
#   struct rep_sTableDescriptor { rep_sDescriptor Descriptor; std::uint32_t TableTypeId; ... };
#     Members in the order of the definition; fixed character arrays (char fName[256]) are always
#     terminated after a reply; the characters behind the terminator are 0.
#   enum ag_eSystemType : std::uint16_t { ... };
#   inline constexpr std::int16_t repTimeFilter_cShiftDaily = 1;
#   extern const RPC_IF_HANDLE zt_v2_rep_v2_0_c_ifspec;
#   void zt_v2_rep_LookupTable(handle_t repHandle, std::uint32_t tableId,
#                              std::uint32_t* lookupHandle, std::uint32_t maxIndex,
#                              std::uint32_t* lastIndex, rep_sTableDescriptor* results,
#                              error_status_t* status);
#   void zt_v2_repView_Create(handle_t repHandle, std::uint32_t tableId,
#                             std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
#                             RPC_CONTEXT_HANDLE* viewContext, error_status_t* status);
#   void zt_v2_repView_SetPosition(RPC_CONTEXT_HANDLE viewContext, std::uint32_t* where,
#                                  error_status_t* status);
#   void zt_v2_repView_Destroy(RPC_CONTEXT_HANDLE* viewContext, error_status_t* status);
#
# In-parameters behind a pointer are pointers to const. A call whose status parameter has
# comm_status stores failures of communication there; every other failure is thrown as
# rpc::RpcException. Out-parameters are untouched when the call did not get a reply, and undefined
# up to the point of the fault when a reply cannot be decoded (1783). An operation on a context
# handle throws 1775 for a null one; Destroy of a null context sends nothing and gives status 0.
#
# rep_server.h declares:
#
#   class rep_Server : public rpc::server::Interface {
#    public:
#     virtual void rep_LookupTable(const rpc::server::CallInfo& call, std::uint32_t tableId,
#                                  std::uint32_t* lookupHandle, std::uint32_t maxIndex,
#                                  std::uint32_t* lastIndex, rep_sTableDescriptor* results,
#                                  error_status_t* status) = 0;
#     virtual void repView_Create(const rpc::server::CallInfo& call, std::uint32_t tableId,
#                                 std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
#                                 rpc::WireContext* viewContext, error_status_t* status) = 0;
#     virtual void repView_SetPosition(const rpc::server::CallInfo& call,
#                                      const rpc::WireContext& viewContext, std::uint32_t* where,
#                                      error_status_t* status) = 0;
#     virtual void repView_Destroy(const rpc::server::CallInfo& call,
#                                  rpc::WireContext* viewContext, error_status_t* status) = 0;
#     ... spec, operation and dispatch of rpc::server::Interface, implemented
#   };
#
# Out-parameters of an operation start as zero; arrays hold what the client asked for (results has
# maxIndex + 1 elements). A client that asks for more than ndr::kResultBytes gets the fault
# kNcaOutArgsTooBig. Texts in structures need their length field set to the length of the text. An
# operation ends with a fault by throwing rpc::server::Fault.
#
# The platform's epm.h has, besides plain structures,
#
#   struct twr_t { std::uint32_t tower_length; std::vector<std::uint8_t> tower_octet_string; };
#   struct ept_entry_t { uuid_t object; std::shared_ptr<twr_t> tower; char annotation[64]; };
#   void ept_lookup(handle_t h, std::uint32_t inquiry_type, const uuid_t* object,
#                   const ept_if_id_t* interface_id, std::uint32_t vers_option,
#                   RPC_CONTEXT_HANDLE* entry_handle, std::uint32_t max_ents,
#                   std::uint32_t* num_ents, ept_entry_t* entries, error_status_t* status);
#
# where object, interface_id, *entry_handle and an entry's tower may be null.
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
