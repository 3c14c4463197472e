# ruvohost, the server's half for other programs: libs/host and what it stands on, in one archive.

set(host_parts host rfb io rdr plat_shm plat_config plat_timer plat_log plat)
set(host_folders libs/host base/rfb base/3rdparty/Xregion base/io base/rdr base/plat/shm
    base/plat/config base/plat/timer base/plat/log base/plat)

add_library(ruvohost STATIC)
add_library(ruvohost::ruvohost ALIAS ruvohost)
set_target_properties(ruvohost PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(ruvohost INTERFACE cxx_std_20)
set(host_interface ${PROJECT_SOURCE_DIR}/libs/host/include)
foreach(part IN LISTS host_parts)
  target_sources(ruvohost PRIVATE $<TARGET_OBJECTS:ruvo_${part}>)
  if(NOT EXISTS ${host_interface})
    target_include_directories(ruvohost INTERFACE
                               $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include/${part}>
                               $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ruvohost>)
  endif()
endforeach()
if(EXISTS ${host_interface})
  target_include_directories(ruvohost INTERFACE $<BUILD_INTERFACE:${host_interface}>
                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endif()
find_package(Threads REQUIRED)
target_link_libraries(ruvohost PUBLIC Threads::Threads ${CMAKE_DL_LIBS} rt
                      $<BUILD_INTERFACE:${MBEDCRYPTO_LIBRARY}> $<INSTALL_INTERFACE:mbedcrypto>)
