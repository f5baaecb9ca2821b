# zelk_add_gtest(NAME LABEL <unit|contract|integration|sim> SOURCES ... [LIBS ...] [DEFINES ...]
#                [INCLUDES ...] [RESOURCE_LOCK NAME])
# RESOURCE_LOCK keeps the program's tests from running at the same time as other tests that name
# the same resource (e.g. the calibration service's socket name, which every process shares).
# Builds one GoogleTest program and registers each of its tests as its own CTest test, so that
# every test runs in a fresh process (properties, settings and the working directory are
# process-wide in the host kit).
find_package(GTest REQUIRED)
include(GoogleTest)

function(zelk_add_gtest name)
  cmake_parse_arguments(ARG "" "LABEL;RESOURCE_LOCK" "SOURCES;LIBS;DEFINES;INCLUDES" ${ARGN})
  if(NOT ARG_LABEL MATCHES "^(unit|contract|integration|sim)$")
    message(FATAL_ERROR "zelk_add_gtest(${name}): LABEL must be unit, contract, integration or sim")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE GTest::gtest_main GTest::gmock ${ARG_LIBS})
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINES})
  target_include_directories(${name} PRIVATE ${ARG_INCLUDES})
  set(lock)
  if(ARG_RESOURCE_LOCK)
    set(lock RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
  endif()
  gtest_discover_tests(${name}
    TEST_PREFIX "${name}."
    PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 300 ${lock}
    DISCOVERY_TIMEOUT 60)
endfunction()
