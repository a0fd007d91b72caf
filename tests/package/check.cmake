# Installs the build into a fresh prefix, runs the installed console from an
# empty folder on the bundled market it installed, then configures, builds
# and runs the outside project against the prefix.
file(REMOVE_RECURSE ${WORK_DIR})
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
if(NOT EXISTS ${prefix}/lib/libdirectory.so.1 AND NOT EXISTS ${prefix}/lib64/libdirectory.so.1)
  message(FATAL_ERROR "libdirectory.so.1 was not installed")
endif()

# The installed console must find its libraries, data and translation within
# the prefix: no absolute search path, no library path from the caller.
set(console ${prefix}/bin/directory-console)
file(READ_ELF ${console} RUNPATH runpath RPATH rpath)
foreach(dir IN LISTS runpath rpath)
  string(REPLACE ":" ";" dirs "${dir}")
  foreach(d IN LISTS dirs)
    if(NOT d MATCHES "^\\$ORIGIN")
      message(FATAL_ERROR "installed console searches ${d}, outside its prefix")
    endif()
  endforeach()
endforeach()
file(MAKE_DIRECTORY ${WORK_DIR}/empty)
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH LANG=C
                        ${console} --quiet --security 1,14,4300000001
  WORKING_DIRECTORY ${WORK_DIR}/empty RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out MATCHES "Loaded ${prefix}/share/libdirectory/market/snapshot.jsonl"
   OR NOT out MATCHES "code: +VLTC29540L1" OR NOT out MATCHES "texts in English")
  message(FATAL_ERROR "installed console, run from an empty folder, exited ${rc}:\n${out}\n${err}")
endif()
message(STATUS "${out}")
file(GLOB left ${WORK_DIR}/empty/*)
if(left)
  message(FATAL_ERROR "the console wrote into its working folder: ${left}")
endif()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
# The outside program checks that it shares the library's directory
# instances, and shows the library's version.
execute_process(COMMAND ${WORK_DIR}/build/uses_directory RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT out MATCHES "library version ${VERSION}\n")
  message(FATAL_ERROR "the outside program exited ${rc}:\n${out}\n${err}")
endif()
message(STATUS "${out}")
