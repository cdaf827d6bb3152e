# The Debian packages, one of each component, made by `./dev package` with cpack.
set(VU_MOM_MAINTAINER "vu_mom maintainers <maintainers@vu-mom.invalid>"
    CACHE STRING "Who is named as the maintainer of the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vu-mom)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL binding platform tools development)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package/remove_run_paths.cmake)
set(CPACK_THREADS 0)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${VU_MOM_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
# dpkg-shlibdeps finds out what the files need. Where they are for another machine, it is told
# where to look by tools/package.sh.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(CMAKE_SYSROOT)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}
    ${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()

# Modules are compiled against one version of the interpreter.
file(STRINGS ${Python3_INCLUDE_DIR}/patchlevel.h lines REGEX "define PY_(MAJOR|MINOR)_VERSION")
string(REGEX MATCHALL "[0-9]+" numbers "${lines}")
list(GET numbers 1 minor)
math(EXPR next "${minor} + 1")
set(python "python3 (>= 3.${minor}), python3 (<< 3.${next})")
set(same "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

# vu_package(COMPONENT NAME SECTION ... SUMMARY ... TEXT ... DEPENDS ... [RECOMMENDS ...]): the
# package of a component. With Python files it has scripts that compile them where it is installed.
function(vu_package component name)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "SECTION;SUMMARY;TEXT;DEPENDS;RECOMMENDS" "")
  string(TOUPPER CPACK_DEBIAN_${component} prefix)
  set(${prefix}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(${prefix}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
  set(${prefix}_PACKAGE_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
  set(${prefix}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}" PARENT_SCOPE)
  set(${prefix}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}" PARENT_SCOPE)
  install(FILES cmake/package/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  if(arg_DEPENDS MATCHES "python3")
    set(package ${name})
    set(scripts)
    foreach(script postinst prerm)
      configure_file(cmake/package/${script}.in ${CMAKE_BINARY_DIR}/package/${name}/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                         WORLD_READ WORLD_EXECUTE)
      list(APPEND scripts ${CMAKE_BINARY_DIR}/package/${name}/${script})
    endforeach()
    if(component STREQUAL "platform")  # has a library
      list(APPEND scripts ${PROJECT_SOURCE_DIR}/cmake/package/triggers)
    endif()
    set(${prefix}_PACKAGE_CONTROL_EXTRA "${scripts}" PARENT_SCOPE)
  endif()
endfunction()

vu_package(binding python3-vu-mom
  SECTION python
  SUMMARY "typed object store for Python: the binding"
  TEXT "The extension module vu_mom alone, with its type stubs. It needs a store library,
libvu_mom_impl.so, and the modules vu_global, vu_thread and vu_mom_common: those of a
device, or those of vu-mom-platform."
  DEPENDS "${python}"
  RECOMMENDS "vu-mom-platform ${same}")
vu_package(platform vu-mom-platform
  SECTION python
  SUMMARY "typed object store for Python: the platform"
  TEXT "The store library with its embedded engine and the one on a redis-server, the event
loop, the message wrappers, and vu_aio for asyncio."
  DEPENDS "${python}, python3-vu-mom ${same}")
vu_package(tools vu-mom-tools
  SECTION utils
  SUMMARY "typed object store for Python: tools"
  TEXT "vu-mom looks into a store and changes it, from a shell; protoc-gen-vu makes Python
classes from .proto files."
  # Without the .proto files of libprotobuf-dev, protoc does not look into /usr/include at all.
  DEPENDS "${python}, vu-mom-platform ${same}, protobuf-compiler, libprotobuf-dev")
vu_package(development vu-mom-dev
  SECTION libdevel
  SUMMARY "typed object store for Python: development files"
  TEXT "Headers, and what find_package and pkg-config need, for C and C++ programs that use the
store library, and for those who bring a store library of their own; the pages, and examples."
  DEPENDS "vu-mom-platform ${same}, vu-mom-tools ${same}")

# What there is to read, for those who have the packages alone.
set(documents ${CMAKE_INSTALL_DATADIR}/doc/vu-mom-dev)
install(FILES README.md DESTINATION ${documents} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${documents} COMPONENT development
  PATTERN CMakeLists.txt EXCLUDE PATTERN __pycache__ EXCLUDE)

include(CPack)
