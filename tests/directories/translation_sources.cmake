# Runs the translation tools over the sources against a copy of the shipped
# translation. Every text the code hands to tr()/translate() (the forms'
# included) must come out with a finished English text, and every text the
# translation holds must still be found in its context: a new text without
# an entry, one left unfinished or empty, and one whose source changed or
# went away (the next update would drop it as vanished) all fail.
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
string(REGEX MATCHALL "<name>[^<]*</name>|<source>[^<]*</source>[ \n]*<translation[^>]*>[^<]*</translation>" found "${text}")
set(context "")
set(lost "")
set(untranslated "")
set(entries 0)
foreach(item IN LISTS found)
  if(item MATCHES "^<name>([^<]*)</name>")
    set(context ${CMAKE_MATCH_1})
  elseif(item MATCHES "^<source>([^<]*)</source>[ \n]*<translation([^>]*)>([^<]*)</translation>")
    math(EXPR entries "${entries} + 1")
    set(source ${CMAKE_MATCH_1})
    set(attributes "${CMAKE_MATCH_2}")
    set(english "${CMAKE_MATCH_3}")
    if(attributes MATCHES "vanished|obsolete")
      string(APPEND lost "  ${context}: ${source}\n")
    elseif(attributes MATCHES "unfinished" OR english STREQUAL "")
      string(APPEND untranslated "  ${context}: ${source}\n")
    endif()
  endif()
endforeach()
# Every message read: one the pattern skipped would pass unchecked.
string(REGEX MATCHALL "<message[ >]" messages "${text}")
list(LENGTH messages count)
if(NOT entries EQUAL count OR count EQUAL 0)
  message(FATAL_ERROR "${entries} of the ${count} messages of ${ts} read: its format changed")
endif()
set(report "")
if(lost)
  string(APPEND report "texts of the shipped translation no longer found in the sources:\n${lost}")
endif()
if(untranslated)
  string(APPEND report "texts of the sources without a finished English text:\n${untranslated}")
endif()
string(REPLACE "&apos," "'" report "${report}")
string(REPLACE "&quot," "\"" report "${report}")
if(report)
  message(FATAL_ERROR "${report}")
endif()
message(STATUS "${entries} texts, each with a finished English text")
