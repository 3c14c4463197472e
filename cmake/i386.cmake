# The 32-bit x86 program, built on a 64-bit machine with multilib, against the libraries that
# scripts/install-deps-i386 fetches.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/env)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

if(DEFINED ENV{RUVO_I386_ROOT})
  set(i386_root $ENV{RUVO_I386_ROOT})
elseif(EXISTS /opt/ruvo-i386/.complete)
  set(i386_root /opt/ruvo-i386)
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(i386_root $ENV{XDG_CACHE_HOME}/ruvo-build/i386)
else()
  set(i386_root $ENV{HOME}/.cache/ruvo-build/i386)
endif()
set(i386_libraries ${i386_root}/usr/lib/i386-linux-gnu)

set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
# An RPATH rather than a RUNPATH: it also serves the libraries that are opened at run time.
string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT "-m32 -L${i386_libraries} -Wl,--disable-new-dtags "
       "-Wl,-rpath,${i386_libraries}:${i386_root}/lib/i386-linux-gnu")

set(CMAKE_LIBRARY_PATH ${i386_libraries})
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${i386_root})
set(ENV{PKG_CONFIG_LIBDIR} ${i386_libraries}/pkgconfig:/usr/share/pkgconfig)

# It is the agent that is wanted as a 32-bit program.
set(RUVO_VIEW OFF CACHE BOOL "Build ruvoview")
