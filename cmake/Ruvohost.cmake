# ruvohost, the server's half for other programs: libs/host and what it stands on, in one archive.

add_library(ruvohost STATIC)
add_library(ruvohost::ruvohost ALIAS ruvohost)
set_target_properties(ruvohost PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(ruvohost INTERFACE cxx_std_20)
foreach(part IN ITEMS host rfb io rdr ${plat_rooms})
  target_sources(ruvohost PRIVATE $<TARGET_OBJECTS:ruvo_${part}>)
endforeach()
# All that its users see.
set(host_interface ${PROJECT_SOURCE_DIR}/libs/host/include)
target_include_directories(ruvohost INTERFACE $<BUILD_INTERFACE:${host_interface}>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
find_package(Threads REQUIRED)
target_link_libraries(ruvohost PUBLIC Threads::Threads ${CMAKE_DL_LIBS} rt
                      $<BUILD_INTERFACE:${MBEDCRYPTO_LIBRARY}> $<INSTALL_INTERFACE:mbedcrypto>)
