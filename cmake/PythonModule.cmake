# vu_add_python_module(NAME SOURCE...): an extension module in build/PRESET/python.
#
# The file is called NAME.so, which every interpreter version and platform accepts.

# The headers are those of Python3_EXECUTABLE, or Python3_INCLUDE_DIR where that
# interpreter does not run on this machine. A module needs no Python library to link.
if(NOT Python3_INCLUDE_DIR)
  if(NOT Python3_EXECUTABLE)
    set(Python3_EXECUTABLE /usr/bin/python3)
  endif()
  execute_process(
    COMMAND ${Python3_EXECUTABLE} -c "import sysconfig; print(sysconfig.get_path('include'))"
    OUTPUT_VARIABLE Python3_INCLUDE_DIR OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
endif()
if(NOT EXISTS ${Python3_INCLUDE_DIR}/Python.h)
  message(FATAL_ERROR "no Python.h in '${Python3_INCLUDE_DIR}' (Debian: python3-dev)")
endif()

function(vu_add_python_module name)
  add_library(${name} MODULE ${ARGN})
  target_include_directories(${name} SYSTEM PRIVATE ${Python3_INCLUDE_DIR})
  # The headers of Debian's debug interpreter are links to the ordinary ones; GCC follows
  # them for system headers and would find the ordinary pyconfig.h beside those.
  target_compile_options(${name} PRIVATE
    $<$<CXX_COMPILER_ID:GNU>:-fno-canonical-system-headers>)
  target_link_libraries(${name} PRIVATE vu_flags)
  set_target_properties(${name} PROPERTIES
    PREFIX "" SUFFIX ".so" LIBRARY_OUTPUT_DIRECTORY ${VU_PYTHON_DIR})
  vu_install_python_module(${name})
endfunction()

# vu_optimize_whole(TARGET): looks at the sources of a target together, which saves small functions
# from being called across files. With GCC, in optimized builds.
function(vu_optimize_whole target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set_target_properties(${target} PROPERTIES
      INTERPROCEDURAL_OPTIMIZATION_RELEASE ON INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ON)
  endif()
endfunction()

# vu_add_python_files(TARGET [PACKAGE NAME] FILE...): copies Python files and stubs there, or
# into the directory of a package.
function(vu_add_python_files target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PACKAGE" "")
  set(copies)
  foreach(file IN LISTS arg_UNPARSED_ARGUMENTS)
    get_filename_component(name ${file} NAME)
    get_filename_component(source ${file} ABSOLUTE)
    cmake_path(APPEND VU_PYTHON_DIR "${arg_PACKAGE}" ${name} OUTPUT_VARIABLE copy)
    add_custom_command(OUTPUT ${copy}
      COMMAND ${CMAKE_COMMAND} -E copy ${source} ${copy}
      DEPENDS ${source})
    list(APPEND copies ${copy})
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${copies})
  vu_install_python_files("${arg_PACKAGE}" ${arg_UNPARSED_ARGUMENTS})
endfunction()
