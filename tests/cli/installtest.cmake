# The installed tool: installs the build tree into a fresh prefix, moves the prefix elsewhere (the
# installation must not depend on where it was put), and runs "oisverify run" from there, in a
# working folder of its own. The run must pass, take the node library from the moved prefix and
# write nothing that names the build tree.
#   cmake -DBUILD_DIR=<build tree> -P installtest.cmake
if(NOT BUILD_DIR)
  message(FATAL_ERROR "BUILD_DIR is not set")
endif()
execute_process(COMMAND mktemp -d "$ENV{TMPDIR}/oisverify-install-XXXXXX" OUTPUT_VARIABLE base
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  execute_process(COMMAND mktemp -d /tmp/oisverify-install-XXXXXX OUTPUT_VARIABLE base
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

function(fail message)
  file(REMOVE_RECURSE "${base}")
  message(FATAL_ERROR "${message}")
endfunction()

execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${base}/first"
                RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  fail("cmake --install failed: ${err}")
endif()
file(RENAME "${base}/first" "${base}/moved")
set(prefix "${base}/moved")
foreach(file bin/oisverify lib/oisverify/com.zelk.node.zelkoisverify.so lib/oisverify/libOISHighFPS.so
        lib/oisverify/libchxlogicalcameratable.so lib/oisverify/libchihostemulator.so)
  if(NOT EXISTS "${prefix}/${file}")
    fail("the installation lacks ${file}")
  endif()
endforeach()

file(MAKE_DIRECTORY "${base}/work")
execute_process(COMMAND "${prefix}/bin/oisverify" run --progress-every 0
                WORKING_DIRECTORY "${base}/work" RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  fail("the installed oisverify run exited with ${rc}:\n${out}\n${err}")
endif()
set(page "${base}/work/oisverify-out/index.html")
if(NOT EXISTS "${page}")
  fail("the installed run wrote no ${page}:\n${out}")
endif()
file(READ "${page}" html)
string(FIND "${html}" "<td>${prefix}/lib/oisverify/com.zelk.node.zelkoisverify.so</td>" at)
if(at EQUAL -1)
  fail("the installed run did not load the node library from ${prefix}/lib/oisverify")
endif()
file(GLOB written "${base}/work/oisverify-out/*")
foreach(file ${written})
  file(READ "${file}" text)
  string(FIND "${text}" "${BUILD_DIR}" at)
  if(NOT at EQUAL -1)
    fail("${file} names the build tree ${BUILD_DIR}")
  endif()
endforeach()
file(REMOVE_RECURSE "${base}")
