# Debian packages: "cpack" in the build folder, which the preset "package" configures for /usr.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ruvoagent)
set(CPACK_PACKAGE_VENDOR "ruvoagent")
set(CPACK_PACKAGE_CONTACT "ruvoagent <ruvoagent@packages.invalid>" CACHE STRING
    "Maintainer named in the packages")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/prepare.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish.cmake)

set(CPACK_COMPONENTS_ALL "")
if(RUVO_AGENT)
  list(APPEND CPACK_COMPONENTS_ALL agent)
endif()
if(TARGET ruvodrive)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET ruvoview)
  list(APPEND CPACK_COMPONENTS_ALL view)
endif()
if(RUVO_HOST)
  list(APPEND CPACK_COMPONENTS_ALL dev)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME ruvoagent)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION x11)
set(CPACK_COMPONENT_AGENT_DESCRIPTION "desktop agent of a remote-desktop server for X11
Runs inside one X11 desktop, started and driven by a server: captures the
screen into shared memory, reports what changes, types and points, carries
the clipboard, sets display sizes.")
# Relocations that the linker packed need a loader that reads them, and say so by a version without a
# symbol, which dpkg-shlibdeps overlooks. What it finds is added to this.
if(RUVO_PACKS_RELOCATIONS)
  set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS "libc6 (>= 2.36)")
endif()
# Opened at run time, when they are there.
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS "libxdamage1, libxfixes3, libxrandr2")
set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS "ruvo-tools")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ruvo-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION x11)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "drive desktop agents from a shell
ruvodrive starts a desktop agent in an X11 desktop and plays its server:
pictures of the desktop, typing, clicks, the clipboard, display sizes. The
systemd unit ruvo-desktop@ runs a private desktop and a tool on it.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "ruvoagent (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "xvfb")
# Programs that some commands ask.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "ffmpeg, x11-utils, x11-xserver-utils")

set(CPACK_DEBIAN_VIEW_PACKAGE_NAME ruvo-view)
set(CPACK_DEBIAN_VIEW_PACKAGE_SECTION x11)
set(CPACK_COMPONENT_VIEW_DESCRIPTION "show a desktop live in a browser
ruvoview starts a desktop agent in an X11 desktop, or an X server and a
session of its own, and serves one page that shows the desktop and passes
keys, pointer, touch and the clipboard back.")
set(CPACK_DEBIAN_VIEW_PACKAGE_DEPENDS "ruvoagent (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_VIEW_PACKAGE_RECOMMENDS "xvfb, openbox")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libruvohost-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION "servers of desktop agents - development files
A C++ library that starts desktop agents, speaks their messages with typed
calls and maps their pixels. It joins the loop of the program that uses it.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libmbedtls-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "ruvoagent")

include(CPack)
