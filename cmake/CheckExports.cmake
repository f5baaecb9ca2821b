# cmake -DLIBRARY=<shared library> -DEXPECTED=<symbol;...> -P CheckExports.cmake
# Fails unless the library's dynamic symbol table defines exactly the expected symbols, apart from
# the ones the toolchain adds to every shared object.
cmake_policy(SET CMP0007 NEW)
find_program(NM_TOOL NAMES nm REQUIRED)
execute_process(COMMAND ${NM_TOOL} -D --defined-only --format=just-symbols ${LIBRARY}
                OUTPUT_VARIABLE _symbols RESULT_VARIABLE _result)
if(NOT _result EQUAL 0)
  message(FATAL_ERROR "cannot read the dynamic symbols of ${LIBRARY}")
endif()
string(REPLACE "\n" ";" _symbols "${_symbols}")
list(FILTER _symbols EXCLUDE REGEX "^$|^_init$|^_fini$|^_edata$|^_end$|^__bss_start$")
list(SORT _symbols)
list(SORT EXPECTED)
if(NOT _symbols STREQUAL EXPECTED)
  message(FATAL_ERROR "${LIBRARY} exports [${_symbols}], expected exactly [${EXPECTED}]")
endif()
message(STATUS "${LIBRARY} exports exactly [${_symbols}]")
