# Run by cpack on the packages that it has made: dpkg-deb puts them together once more, since cpack
# writes the time of the day into them.

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  # Their order is that in which cpack came across the files.
  file(STRINGS ${tree}/DEBIAN/md5sums sums)
  list(SORT sums)
  list(JOIN sums "\n" sums)
  file(WRITE ${tree}/DEBIAN/md5sums "${sums}\n")
  execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
