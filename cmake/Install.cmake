# What "cmake --install" puts where. Components: agent, tools, view, dev.

include(CMakePackageConfigHelpers)

set(ruvo_package_dir ${PROJECT_SOURCE_DIR}/packaging)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBEXECDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
           NORMALIZE OUTPUT_VARIABLE RUVO_LIBEXEC_DIR)
string(APPEND RUVO_LIBEXEC_DIR /ruvo)

# ruvo_install_page(COMPONENT NAME SECTION): a manual page that names this build's directories.
function(ruvo_install_page component name section)
  set(page ${PROJECT_BINARY_DIR}/man/${name}.${section})
  file(READ ${PROJECT_SOURCE_DIR}/man/${name}.${section} text)
  string(REPLACE "/etc/ruvo" "${RUVO_CONFIG_DIR}" text "${text}")
  string(REPLACE "/usr/share/doc" "${CMAKE_INSTALL_FULL_DATAROOTDIR}/doc" text "${text}")
  file(WRITE ${page} "${text}")
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# ruvo_install_documents(COMPONENT PACKAGE FILES...)
function(ruvo_install_documents component package)
  set(documents ${ARGN})
  list(TRANSFORM documents PREPEND ${PROJECT_SOURCE_DIR}/)
  install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
          COMPONENT ${component})
endfunction()

# ruvo_install_completions(COMPONENT PROGRAM)
function(ruvo_install_completions component program)
  # Debian's zsh looks for packages' completions in a place of its own.
  set(zsh_functions site-functions)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
    set(zsh_functions vendor-completions)
  endif()
  set(folder ${ruvo_package_dir}/completions)
  install(FILES ${folder}/${program}.bash
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions RENAME ${program}
          COMPONENT ${component})
  install(FILES ${folder}/${program}.zsh
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/${zsh_functions} RENAME _${program}
          COMPONENT ${component})
  install(FILES ${folder}/${program}.fish
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d COMPONENT ${component})
endfunction()

if(TARGET ruvoagent)
  install(TARGETS ruvoagent DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT agent)
  ruvo_install_page(agent ruvoagent 8)
  ruvo_install_documents(agent ruvoagent README.md CHANGELOG.md THIRD-PARTY-NOTICES docs/protocol.md
                         docs/parameters.md docs/logging.md docs/security.md docs/keyboards.md
                         docs/architecture.md)
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/examples/server.py
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ruvoagent/examples COMPONENT agent)
  # Nothing goes to the configuration directory itself: the agent needs nothing there.
  install(DIRECTORY ${ruvo_package_dir}/config/
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ruvoagent/examples COMPONENT agent)
endif()

if(TARGET ruvodrive)
  install(TARGETS ruvodrive DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  ruvo_install_page(tools ruvodrive 1)
  ruvo_install_documents(tools ruvo-tools CHANGELOG.md THIRD-PARTY-NOTICES)

  configure_file(${ruvo_package_dir}/systemd/ruvo-desktop@.service.in
                 ${PROJECT_BINARY_DIR}/packaging/ruvo-desktop@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/ruvo-desktop@.service
          DESTINATION lib/systemd/system COMPONENT tools)
  install(PROGRAMS ${ruvo_package_dir}/systemd/ruvo-desktop
          DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/ruvo COMPONENT tools)
  install(FILES ${ruvo_package_dir}/systemd/desktop.conf
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ruvo-tools/examples COMPONENT tools)

  ruvo_install_completions(tools ruvodrive)
endif()

if(TARGET ruvoview)
  install(TARGETS ruvoview DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT view)
  ruvo_install_page(view ruvoview 1)
  ruvo_install_documents(view ruvo-view CHANGELOG.md THIRD-PARTY-NOTICES docs/fleet.md)
  configure_file(${ruvo_package_dir}/systemd/ruvoview@.service.in
                 ${PROJECT_BINARY_DIR}/packaging/ruvoview@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/ruvoview@.service
          DESTINATION lib/systemd/system COMPONENT view)
  install(FILES ${ruvo_package_dir}/systemd/view.conf ${ruvo_package_dir}/Containerfile
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/ruvo-view/examples COMPONENT view)
  ruvo_install_completions(view ruvoview)
endif()

if(TARGET ruvohost)
  install(TARGETS ruvohost EXPORT ruvohostTargets DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(EXPORT ruvohostTargets NAMESPACE ruvohost::
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ruvohost COMPONENT dev)
  install(DIRECTORY ${host_interface}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  file(GLOB examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.cpp)
  install(FILES ${examples} ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libruvohost-dev/examples COMPONENT dev)
  configure_package_config_file(${ruvo_package_dir}/ruvohostConfig.cmake.in
                                ${PROJECT_BINARY_DIR}/packaging/ruvohostConfig.cmake
                                INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ruvohost)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/ruvohostConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/ruvohostConfig.cmake
                ${PROJECT_BINARY_DIR}/packaging/ruvohostConfigVersion.cmake
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ruvohost COMPONENT dev)
  # Relative to the file's own place, so that a moved prefix works.
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
             BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE up)
  set(RUVO_PC_PREFIX "\${pcfiledir}/${up}")
  configure_file(${ruvo_package_dir}/ruvohost.pc.in ${PROJECT_BINARY_DIR}/packaging/ruvohost.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/ruvohost.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
  ruvo_install_documents(dev libruvohost-dev CHANGELOG.md THIRD-PARTY-NOTICES docs/embedding.md)
endif()

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
                    COMMAND ${CMAKE_COMMAND} -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
                            -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake
                    COMMENT "Removing what cmake --install has installed")
endif()
