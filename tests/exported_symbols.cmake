cmake_minimum_required(VERSION 3.18)
# Lists the symbols a shared library exports and fails when one of them
# belongs to the library's inside: programs must not be able to link to it.
#   -DLIBRARY=<file> -DNM=<nm> -DCXXFILT=<c++filt>
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} COMMAND ${CXXFILT}
  RESULT_VARIABLE rc OUTPUT_VARIABLE symbols ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR symbols STREQUAL "")
  message(FATAL_ERROR "could not list the symbols of ${LIBRARY}: ${err}")
endif()
# What the installed headers do not declare: helper namespaces, the
# per-thread book-keeping of qCallOnce, the registry's class lookup and the
# constructor step that takes a registry line, the account cache.
set(inside
  "detail::" "frame_detail" "TableBusy" "beginRun" "endRun" "isRunningHere" "reenteredText"
  "registeredClass" "registryLine" "DirectoryClass const&" "LastAccountCache")
string(REPLACE "\n" ";" lines "${symbols}")
list(LENGTH lines count)
set(found "")
foreach(line IN LISTS lines)
  foreach(pattern IN LISTS inside)
    string(FIND "${line}" "${pattern}" at)
    if(NOT at EQUAL -1)
      string(APPEND found "  ${line}\n")
      break()
    endif()
  endforeach()
endforeach()
if(found)
  message(FATAL_ERROR "${LIBRARY} exports symbols of its inside:\n${found}")
endif()
message(STATUS "${LIBRARY}: ${count} exported symbols, none of them internal")
