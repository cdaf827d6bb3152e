# Run by cpack before it makes the packages of what it has installed: in /usr, libraries are found
# without run-time paths.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_DIRECTORY}/*.so")
foreach(file IN LISTS files)
  file(RPATH_REMOVE FILE "${file}")
endforeach()
