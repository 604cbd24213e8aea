# Turns the plain table of texts (id, tab, text) into the C++ source of a
# resource module: the array mergeStringTable, ended by an entry whose text
# is null. Run as: cmake -DINPUT=... -DOUTPUT=... -P make_messages.cmake
file(STRINGS "${INPUT}" lines ENCODING UTF-8)
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
  string(REPLACE "\"" "\\\"" text "${text}")
  string(APPEND entries "    {${id}, \"${text}\"},\n")
endforeach()
file(WRITE "${OUTPUT}.tmp"
"// Generated from ${INPUT}; edit that file instead.
#include \"mergedb/mergedb.h\"

extern \"C\" __attribute__((visibility(\"default\"))) const MergeStringEntry mergeStringTable[] = {
${entries}    {0, nullptr},
};
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
