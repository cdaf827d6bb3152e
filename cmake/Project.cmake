# What holds for every target: language, warnings, output directories, run-time paths.

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# build/PRESET/python holds everything importable, lib the libraries, bin the tools.
set(VU_PYTHON_DIR ${CMAKE_BINARY_DIR}/python)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
file(MAKE_DIRECTORY ${VU_PYTHON_DIR})

# Modules and tools find the libraries beside them, wherever the tree is moved.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

# vu_build_together(TARGET...): compiles several sources at a time, which takes a quarter of the
# time where most of it goes into headers. Not for modules of Python types, whose files have
# functions of the same names.
option(VU_MOM_TOGETHER "Compile sources together where that saves time" ON)
function(vu_build_together)
  set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ${VU_MOM_TOGETHER})
endfunction()

# Every target of the project links this.
add_library(vu_flags INTERFACE)
target_compile_options(vu_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
  # As the language has it; clang 14 asks to be told.
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fsized-deallocation>)
if(VU_MOM_SANITIZE)
  target_compile_options(vu_flags INTERFACE
    -fsanitize=${VU_MOM_SANITIZE} -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_compile_definitions(vu_flags INTERFACE VU_SANITIZED)
  target_link_options(vu_flags INTERFACE -fsanitize=${VU_MOM_SANITIZE})
endif()
if(VU_MOM_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VU_MOM_FUZZ needs clang")
  endif()
  # Tells libFuzzer what ran; its main program comes with the targets of tests/fuzz. Clang's
  # warnings are the business of `./dev lint`.
  target_compile_options(vu_flags INTERFACE
    -fsanitize=fuzzer-no-link -fno-sanitize-coverage=trace-cmp -Wno-error)
endif()
