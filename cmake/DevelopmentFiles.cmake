# What other projects find this one by: find_package(vu_mom), and pkg-config. Both find everything
# else from where they are, so the installed tree may be moved.
include(CMakePackageConfigHelpers)
set(configs ${CMAKE_INSTALL_LIBDIR}/cmake/vu_mom)
configure_package_config_file(
  cmake/package/vu_mom-config.cmake.in ${CMAKE_BINARY_DIR}/package/vu_mom-config.cmake
  INSTALL_DESTINATION ${configs} PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(
  ${CMAKE_BINARY_DIR}/package/vu_mom-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_BINARY_DIR}/package/vu_mom-config.cmake
  ${CMAKE_BINARY_DIR}/package/vu_mom-config-version.cmake
  cmake/VuMessages.cmake
  DESTINATION ${configs} COMPONENT development)
install(EXPORT vu_mom NAMESPACE vu_mom:: FILE vu_mom-targets.cmake
  DESTINATION ${configs} COMPONENT development)

file(RELATIVE_PATH to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
set(names vu_mom)
if(NOT VU_MOM_BINDING_ONLY)
  list(APPEND names vu_mom_store)
endif()
foreach(name IN LISTS names)
  configure_file(cmake/package/${name}.pc.in ${CMAKE_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
