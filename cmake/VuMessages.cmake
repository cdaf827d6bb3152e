# vu_generate_messages(TARGET [PROTO_PATH DIRECTORY] PROTO...): Python modules and stubs
# from .proto files, in build/PRESET/python.
#
# Files are named relative to DIRECTORY, by default the calling directory, which is also
# where their imports are found: a/telemetry.proto there becomes the module a.telemetry_vu.
# They may import "vu/options.proto".

find_program(VU_PROTOC protoc PATHS /usr/bin NO_CMAKE_FIND_ROOT_PATH REQUIRED)
if(CMAKE_CROSSCOMPILING)
  find_program(VU_PROTOC_GEN protoc-gen-vu PATHS ${VU_HOST_TOOLS} NO_DEFAULT_PATH
               NO_CMAKE_FIND_ROOT_PATH REQUIRED
               DOC "protoc-gen-vu of a host build; VU_HOST_TOOLS names its directory")
else()
  set(VU_PROTOC_GEN $<TARGET_FILE:protoc-gen-vu>)
endif()

# The directory to give to protoc -I for vu/options.proto.
set(VU_SHARE_DIR ${CMAKE_BINARY_DIR}/share)
configure_file(${CMAKE_CURRENT_LIST_DIR}/../platform/message/vu/options.proto
               ${VU_SHARE_DIR}/vu/options.proto COPYONLY)

function(vu_generate_messages target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PROTO_PATH" "")
  if(NOT arg_PROTO_PATH)
    set(arg_PROTO_PATH ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  get_filename_component(root ${arg_PROTO_PATH} ABSOLUTE)
  set(sources)
  set(outputs)
  foreach(proto IN LISTS arg_UNPARSED_ARGUMENTS)
    string(REGEX REPLACE "\\.proto$" "_vu" module ${proto})
    string(REPLACE "-" "_" module ${module})
    list(APPEND sources ${root}/${proto})
    list(APPEND outputs ${VU_PYTHON_DIR}/${module}.py ${VU_PYTHON_DIR}/${module}.pyi)
  endforeach()
  add_custom_command(OUTPUT ${outputs}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
      ${VU_PROTOC} --plugin=protoc-gen-vu=${VU_PROTOC_GEN} --vu_out=${VU_PYTHON_DIR}
      -I ${root} -I ${VU_SHARE_DIR} ${sources}
    DEPENDS ${sources} ${VU_SHARE_DIR}/vu/options.proto
      $<$<NOT:$<BOOL:${CMAKE_CROSSCOMPILING}>>:protoc-gen-vu>
    COMMENT "Generating message wrappers of ${target}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
