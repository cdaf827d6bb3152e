# Where `cmake --install` puts things, and as parts of what: the components "binding", "platform",
# "tools" and "development", each of which is also a Debian package (Packages.cmake).
#
# A directory that sets VU_COMPONENT has its Python modules, files and stubs installed as part of
# that component; programs, libraries and headers have install() rules where they are made.

# Debian's directory for libraries, also where the prefix is not /usr: its linker and its
# pkg-config look there in /usr/local as well.
if(CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries, below the prefix")
endif()
include(GNUInstallDirs)
set(VU_INSTALL_PYTHON_DIR lib/python3/dist-packages
    CACHE PATH "Python modules, below the prefix; in /usr, Debian's Python finds these")
set(VU_INSTALL_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/vu_mom)

# The way from an installed module to the library.
file(RELATIVE_PATH to_libraries /${VU_INSTALL_PYTHON_DIR} /${CMAKE_INSTALL_LIBDIR})
set(VU_INSTALL_RPATH "$ORIGIN/${to_libraries}")
# Only what a target links, as seen from it, and no directory of this machine.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# vu_install_python_module(TARGET): an extension module, where its directory has a component.
function(vu_install_python_module target)
  if(NOT VU_COMPONENT)
    return()
  endif()
  # A module that is built for a device keeps the run-time path with which it is moved there.
  if(NOT VU_MOM_BINDING_ONLY)
    set_target_properties(${target} PROPERTIES
      BUILD_WITH_INSTALL_RPATH OFF INSTALL_RPATH "${VU_INSTALL_RPATH}")
  endif()
  install(TARGETS ${target} LIBRARY
    DESTINATION ${VU_INSTALL_PYTHON_DIR} COMPONENT ${VU_COMPONENT})
endfunction()

# vu_install_python_files(PACKAGE FILE...): the files of a package, or single modules and their
# stubs where PACKAGE is "". Type checkers look for the stubs of a single module in a package
# NAME-stubs; a module in Python that comes without is its own.
function(vu_install_python_files package)
  if(NOT VU_COMPONENT)
    return()
  endif()
  set(stubs)
  foreach(file IN LISTS ARGN)
    cmake_path(GET file EXTENSION LAST_ONLY extension)
    if(package OR extension STREQUAL ".py")
      install(FILES ${file}
        DESTINATION ${VU_INSTALL_PYTHON_DIR}/${package} COMPONENT ${VU_COMPONENT})
    endif()
    if(NOT package AND (extension STREQUAL ".pyi" OR NOT "${file}i" IN_LIST ARGN))
      list(APPEND stubs ${file})
    endif()
  endforeach()
  foreach(file IN LISTS stubs)
    cmake_path(GET file STEM LAST_ONLY module)
    set(directory ${VU_INSTALL_PYTHON_DIR}/${module}-stubs)
    install(FILES ${file}
      DESTINATION ${directory} RENAME __init__.pyi COMPONENT ${VU_COMPONENT})
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/package/py.typed
      DESTINATION ${directory} COMPONENT ${VU_COMPONENT})
  endforeach()
endfunction()
