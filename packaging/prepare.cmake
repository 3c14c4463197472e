# Run by cpack in each package's tree before it becomes a package: what Debian asks of every package,
# and times that are the same in every build.

if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(epoch $ENV{SOURCE_DATE_EPOCH})
else()
  string(TIMESTAMP epoch "%s" UTC)
endif()
set(ENV{LC_ALL} C)
execute_process(COMMAND date -u -R -d @${epoch} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND date -u +%Y -d @${epoch} OUTPUT_VARIABLE year OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)

file(GLOB trees LIST_DIRECTORIES true ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
foreach(tree IN LISTS trees)
  cmake_path(GET tree FILENAME component)
  string(TOUPPER ${component} component)
  set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  if(NOT package)
    continue()
  endif()
  set(share ${tree}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  file(WRITE ${share}/doc/${package}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: ruvoagent

Files: *
Copyright: ${year} the owner of ruvoagent
License: none
 No licence has been granted yet. The parts of other people's work, and their
 licences, are named in the file THIRD-PARTY-NOTICES beside this one.
")
  file(WRITE ${share}/doc/${package}/changelog.Debian
"${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * See the file changelog.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  file(RENAME ${share}/doc/${package}/CHANGELOG.md ${share}/doc/${package}/changelog)
  file(GLOB_RECURSE pages ${share}/man/*.[1-9])
  execute_process(COMMAND gzip -9n ${pages} ${share}/doc/${package}/changelog
                          ${share}/doc/${package}/changelog.Debian
                  COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND chmod -R u=rwX,go=rX ${tree} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND find ${tree} -exec touch -h -d @${epoch} {} +
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
