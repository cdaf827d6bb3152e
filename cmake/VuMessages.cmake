# vu_generate_messages(TARGET [PROTO_PATH DIRECTORY] [OUTPUT DIRECTORY] PROTO...): Python modules
# and stubs from .proto files.
#
# Files are named relative to PROTO_PATH, by default the calling directory, which is also where
# their imports are found: a/telemetry.proto there becomes the module a.telemetry_vu. They may
# import "vu/options.proto". The modules are written into OUTPUT, by default VU_PYTHON_DIR, or
# where that is not set the build directory that belongs to the calling one.
#
# VU_PROTOC and VU_PROTOC_GEN are the programs, VU_PROTO_DIR is where vu/options.proto is: set by
# ProtocGenVu.cmake in this project, by find_package(vu_mom) elsewhere.
function(vu_generate_messages target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PROTO_PATH;OUTPUT" "")
  if(NOT arg_PROTO_PATH)
    set(arg_PROTO_PATH ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  if(NOT arg_OUTPUT)
    set(arg_OUTPUT ${CMAKE_CURRENT_BINARY_DIR})
    if(VU_PYTHON_DIR)
      set(arg_OUTPUT ${VU_PYTHON_DIR})
    endif()
  endif()
  if(NOT VU_PROTOC OR NOT VU_PROTOC_GEN)
    message(FATAL_ERROR "vu_generate_messages: protoc or protoc-gen-vu is not installed")
  endif()
  get_filename_component(root ${arg_PROTO_PATH} ABSOLUTE)
  get_filename_component(output ${arg_OUTPUT} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_BINARY_DIR})
  file(MAKE_DIRECTORY ${output})
  set(sources)
  set(outputs)
  foreach(proto IN LISTS arg_UNPARSED_ARGUMENTS)
    string(REGEX REPLACE "\\.proto$" "_vu" module ${proto})
    string(REPLACE "-" "_" module ${module})
    list(APPEND sources ${root}/${proto})
    list(APPEND outputs ${output}/${module}.py ${output}/${module}.pyi)
  endforeach()
  add_custom_command(OUTPUT ${outputs}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0
      ${VU_PROTOC} --plugin=protoc-gen-vu=${VU_PROTOC_GEN} --vu_out=${output}
      -I ${root} -I ${VU_PROTO_DIR} ${sources}
    DEPENDS ${sources} ${VU_PROTO_DIR}/vu/options.proto ${VU_PROTOC_GEN}
    COMMENT "Generating message wrappers of ${target}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
