# Runs the translation tools over the sources against a copy of the shipped
# translation: every text it holds must still be found in its context, or
# the next update would drop it from the English texts as vanished.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
file(COPY ${SOURCE_DIR}/translations/libdirectory_en.ts DESTINATION ${WORK_DIR})
set(ts ${WORK_DIR}/libdirectory_en.ts)
execute_process(COMMAND ${LUPDATE} -locations none
    ${SOURCE_DIR}/directories ${SOURCE_DIR}/queries ${SOURCE_DIR}/ui ${SOURCE_DIR}/apps ${SOURCE_DIR}/platform
    -ts ${ts}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "lupdate failed:\n${out}\n${err}")
endif()
file(READ ${ts} text)
string(REPLACE ";" "," text "${text}")   # entities end in ';', a list separator here
string(REGEX MATCHALL "<name>[^<]*</name>|<source>[^<]*</source>[ \n]*<translation type=\"(vanished|obsolete)\"" found "${text}")
set(context "")
set(lost "")
foreach(item IN LISTS found)
  if(item MATCHES "^<name>([^<]*)</name>")
    set(context ${CMAKE_MATCH_1})
  elseif(item MATCHES "^<source>([^<]*)</source>")
    string(APPEND lost "  ${context}: ${CMAKE_MATCH_1}\n")
  endif()
endforeach()
string(REPLACE "&apos," "'" lost "${lost}")
string(REPLACE "&quot," "\"" lost "${lost}")
if(lost)
  message(FATAL_ERROR "texts of the shipped translation no longer found in the sources:\n${lost}")
endif()
