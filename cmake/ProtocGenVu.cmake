# The programs and files with which vu_generate_messages works in this project.
find_program(VU_PROTOC protoc PATHS /usr/bin NO_CMAKE_FIND_ROOT_PATH REQUIRED)
if(CMAKE_CROSSCOMPILING)
  find_program(VU_PROTOC_GEN protoc-gen-vu PATHS ${VU_HOST_TOOLS} NO_DEFAULT_PATH
               NO_CMAKE_FIND_ROOT_PATH REQUIRED
               DOC "protoc-gen-vu of a host build; VU_HOST_TOOLS names its directory")
else()
  set(VU_PROTOC_GEN $<TARGET_FILE:protoc-gen-vu>)
endif()

set(VU_PROTO_DIR ${CMAKE_BINARY_DIR}/share)
configure_file(${CMAKE_CURRENT_LIST_DIR}/../platform/message/vu/options.proto
               ${VU_PROTO_DIR}/vu/options.proto COPYONLY)
