# Writes a source with the files of the page: cmake -DFROM=folder -DTO=source -P PageFiles.cmake

set(types "html=text/html\; charset=utf-8" "css=text/css\; charset=utf-8"
          "js=text/javascript\; charset=utf-8" "svg=image/svg+xml" "png=image/png"
          "ico=image/x-icon" "webmanifest=application/manifest+json")
file(GLOB files ${FROM}/*)
set(arrays "")
set(entries "")
set(number 0)
foreach(file IN LISTS files)
  get_filename_component(name ${file} NAME)
  get_filename_component(extension ${file} LAST_EXT)
  string(SUBSTRING "${extension}" 1 -1 extension)
  set(type "")
  foreach(each IN LISTS types)
    if(each MATCHES "^${extension}=(.*)$")
      set(type "${CMAKE_MATCH_1}")
    endif()
  endforeach()
  if(type STREQUAL "")
    continue()
  endif()
  set(path "/${name}")
  if(name STREQUAL "index.html")
    set(path "/")
  endif()
  file(READ ${file} bytes HEX)
  string(LENGTH "${bytes}" length)
  math(EXPR length "${length} / 2")
  # A literal may be long, a line should not be.
  string(REGEX REPLACE "(................................)" "\\1@" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" bytes "${bytes}")
  string(REPLACE "@" "\"\n    \"" bytes "${bytes}")
  string(APPEND arrays "const char kFile${number}[] =\n    \"${bytes}\";\n")
  string(APPEND entries "    {\"${path}\", \"${type}\", {kFile${number}, ${length}}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${TO} "#include \"PageFiles.h\"\n\nnamespace view {\n\nnamespace {\n\n${arrays}\n"
     "const PageFile kFiles[] = {\n${entries}};\n\n}  // namespace\n\n"
     "const PageFile* findPageFile(std::string_view path) {\n"
     "  for (const PageFile& file : kFiles) {\n    if (file.path == path) return &file;\n  }\n"
     "  return nullptr;\n}\n\n}  // namespace view\n")
