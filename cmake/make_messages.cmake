# Turns the plain table of texts (id, tab, text) into the source of a
# resource module. An OUTPUT ending in .rc gets a Windows string table;
# any other the C++ array mergeStringTable, ended by an entry whose text is
# null. Run as: cmake -DINPUT=... -DOUTPUT=... -P make_messages.cmake
file(STRINGS "${INPUT}" lines ENCODING UTF-8)
set(resourceScript OFF)
if(OUTPUT MATCHES "\\.rc$")
  set(resourceScript ON)
endif()
set(entries "")
foreach(line IN LISTS lines)
  if(line MATCHES "^#" OR line STREQUAL "")
    continue()
  endif()
  if(NOT line MATCHES "^([0-9]+)\t(.*)$")
    message(FATAL_ERROR "bad line in ${INPUT}: ${line}")
  endif()
  set(id "${CMAKE_MATCH_1}")
  set(text "${CMAKE_MATCH_2}")
  string(REPLACE "\\" "\\\\" text "${text}")
  if(resourceScript)
    string(REPLACE "\"" "\"\"" text "${text}")
    string(APPEND entries "    ${id}, \"${text}\"\n")
  else()
    string(REPLACE "\"" "\\\"" text "${text}")
    string(APPEND entries "    {${id}, \"${text}\"},\n")
  endif()
endforeach()
if(resourceScript)
  set(content "// Generated from ${INPUT}; edit that file instead.
#pragma code_page(65001)

STRINGTABLE
BEGIN
${entries}END
")
else()
  set(content "// Generated from ${INPUT}; edit that file instead.
#include \"mergedb/mergedb.h\"

extern \"C\" __attribute__((visibility(\"default\"))) const MergeStringEntry mergeStringTable[] = {
${entries}    {0, nullptr},
};
")
endif()
file(WRITE "${OUTPUT}.tmp" "${content}")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
