# Writes the page's files, compressed, as C++ arrays. Run with -P:
#   OUTPUT   the source file to write
#   FILES    NAME=PATH of each file, with commas between them
string(REPLACE "," ";" files "${FILES}")
set(arrays "")
set(entries "")
set(index 0)
set(type_html "text/html; charset=utf-8")
set(type_js "text/javascript; charset=utf-8")
set(type_css "text/css; charset=utf-8")
set(type_svg "image/svg+xml")
foreach(file IN LISTS files)
  string(REGEX MATCH "^([^=]+)=(.+)$" matched "${file}")
  set(name ${CMAKE_MATCH_1})
  set(path ${CMAKE_MATCH_2})
  execute_process(
    COMMAND gzip --best --no-name --stdout "${path}"
    OUTPUT_FILE "${OUTPUT}.gz" COMMAND_ERROR_IS_FATAL ANY
  )
  file(READ "${OUTPUT}.gz" hex HEX)
  file(SHA256 "${OUTPUT}.gz" digest)
  string(SUBSTRING "${digest}" 0 16 tag)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  string(REGEX MATCH "[a-z]+$" suffix "${name}")
  if(name STREQUAL "index.html")
    set(name "")
  endif()
  string(APPEND arrays "constexpr char kFile${index}[] = {${bytes}};\n")
  string(
    APPEND entries
    "    {\"/${name}\", \"${type_${suffix}}\", \"\\\"${tag}\\\"\", {kFile${index}, sizeof kFile${index}}},\n"
  )
  math(EXPR index "${index} + 1")
endforeach()
file(REMOVE "${OUTPUT}.gz")
file(
  WRITE "${OUTPUT}"
  "#include \"usage/page/page_files.h\"\n\nnamespace usage {\nnamespace {\n${arrays}"
  "constexpr PageFile kFiles[] = {\n${entries}};\n} // namespace\n\n"
  "std::span<const PageFile> pageFiles() { return kFiles; }\n\n} // namespace usage\n"
)
