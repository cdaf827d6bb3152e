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
endfunction()

# vu_add_python_files(TARGET FILE...): copies Python files and stubs there.
function(vu_add_python_files target)
  set(copies)
  foreach(file IN LISTS ARGN)
    get_filename_component(name ${file} NAME)
    get_filename_component(source ${file} ABSOLUTE)
    add_custom_command(OUTPUT ${VU_PYTHON_DIR}/${name}
      COMMAND ${CMAKE_COMMAND} -E copy ${source} ${VU_PYTHON_DIR}/${name}
      DEPENDS ${source})
    list(APPEND copies ${VU_PYTHON_DIR}/${name})
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${copies})
endfunction()
