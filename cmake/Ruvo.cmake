# One folder is one library, "ruvo_" and the folder's name: what these functions are given stands
# without the prefix. A library sees the headers of the libraries that it names, and no
# others: each folder's headers are reached through an include directory of its own.

# Makes the headers of a folder below base/, uilibs/ or libs/ includable for the library, as
# "folder/Header.h", for a room of a folder as "folder/room/Header.h". Links the files one by one:
# the folder's own rooms are other libraries.
function(ruvo_headers name dir)
  string(REGEX MATCH "^(base/3rdparty|base|uilibs|libs)/(.+)$" matched ${dir})
  set(as ${CMAKE_MATCH_2})
  set(include ${PROJECT_BINARY_DIR}/include/${name})
  file(MAKE_DIRECTORY ${include}/${as})
  file(GLOB headers CONFIGURE_DEPENDS ${dir}/*.h)
  foreach(header IN LISTS headers)
    get_filename_component(leaf ${header} NAME)
    file(CREATE_LINK ${header} ${include}/${as}/${leaf} SYMBOLIC)
  endforeach()
  target_include_directories(ruvo_${name} PUBLIC ${include})
  target_compile_options(ruvo_${name} PUBLIC -fmacro-prefix-map=${include}/${as}=${dir})
endfunction()

# For what waits for others rather than computes: most of a program is that.
set(ruvo_small $<$<CONFIG:Release,RelWithDebInfo>:-Os>)

# ruvo_library(NAME [SMALL] DIR dir [ROOMS subfolders...] [DIRS more...] [DEPENDS libs...] [SYSTEM libs...])
function(ruvo_library name)
  cmake_parse_arguments(arg "SMALL" "DIR" "ROOMS;DIRS;DEPENDS;SYSTEM" ${ARGN})
  set(dirs ${arg_DIR} ${arg_DIRS})
  foreach(room IN LISTS arg_ROOMS)
    list(APPEND dirs ${arg_DIR}/${room})
  endforeach()
  list(TRANSFORM dirs APPEND /*.cpp OUTPUT_VARIABLE patterns)
  file(GLOB sources CONFIGURE_DEPENDS ${patterns})
  add_library(ruvo_${name} STATIC EXCLUDE_FROM_ALL ${sources})
  file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/include/${name})
  foreach(dir IN LISTS dirs)
    ruvo_headers(${name} ${dir})
  endforeach()
  # Private: who uses a library's headers names the libraries that these need, too.
  list(TRANSFORM arg_DEPENDS PREPEND ruvo_)
  target_link_libraries(ruvo_${name} PRIVATE ${arg_DEPENDS} ruvo_options ${arg_SYSTEM})
  if(arg_SMALL)
    target_compile_options(ruvo_${name} PRIVATE ${ruvo_small})
  endif()
endfunction()

# ruvo_test(NAME DIR dir [DEPENDS libs...]): every .cpp of the folder in one test program.
function(ruvo_test name)
  cmake_parse_arguments(arg "" "DIR;TIMEOUT" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${arg_DIR}/*.cpp)
  if(NOT sources OR NOT RUVO_TESTS)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  list(TRANSFORM arg_DEPENDS PREPEND ruvo_)
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} ruvo_options gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}."
                       PROPERTIES TIMEOUT ${arg_TIMEOUT})
endfunction()

# ruvo_fuzz(NAME SOURCE DEPENDS libs...)
function(ruvo_fuzz name source)
  cmake_parse_arguments(arg "" "" "DEPENDS" ${ARGN})
  if(RUVO_FUZZ AND EXISTS ${PROJECT_SOURCE_DIR}/${source})
    list(TRANSFORM arg_DEPENDS PREPEND ruvo_)
    add_executable(${name} ${PROJECT_SOURCE_DIR}/${source})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_DEPENDS} ruvo_options)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  endif()
endfunction()
