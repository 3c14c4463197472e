# Run by cpack on the packages that it has made: dpkg-deb puts them together once more, since cpack
# writes the time of the day into them.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  foreach(arguments "--raw-extract;${package};${tree}" "--root-owner-group;--build;${tree};${package}")
    execute_process(COMMAND dpkg-deb ${arguments} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  file(REMOVE_RECURSE ${tree})
endforeach()
