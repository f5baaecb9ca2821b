# zelk_add_gtest(NAME LABEL <unit|contract|integration|sim> SOURCES ... [LIBS ...] [DEFINES ...]
#                [INCLUDES ...] [RESOURCE_LOCK NAME] [OWN_SOCKET_NAMESPACE])
# RESOURCE_LOCK keeps the program's tests from running at the same time as other tests that name
# the same resource. OWN_SOCKET_NAMESPACE is for programs that use the calibration service's
# abstract socket name, which every process of a network namespace shares: each test runs in a
# network namespace of its own (as root), or else holds a machine-wide lock while it runs.
# Builds one GoogleTest program and registers each of its tests as its own CTest test, so that
# every test runs in a fresh process (properties, settings and the working directory are
# process-wide in the host kit).
find_package(GTest REQUIRED)
include(GoogleTest)

function(zelk_add_gtest name)
  cmake_parse_arguments(ARG "OWN_SOCKET_NAMESPACE" "LABEL;RESOURCE_LOCK" "SOURCES;LIBS;DEFINES;INCLUDES" ${ARGN})
  if(NOT ARG_LABEL MATCHES "^(unit|contract|integration|sim)$")
    message(FATAL_ERROR "zelk_add_gtest(${name}): LABEL must be unit, contract, integration or sim")
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE GTest::gtest_main GTest::gmock ${ARG_LIBS})
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINES})
  target_include_directories(${name} PRIVATE ${ARG_INCLUDES})
  if(ARG_OWN_SOCKET_NAMESPACE AND CMAKE_CROSSCOMPILING)
    # The launcher is built for the target and could not start the test under the emulator:
    # such programs run one at a time instead.
    set(ARG_RESOURCE_LOCK calibration_service_socket)
  elseif(ARG_OWN_SOCKET_NAMESPACE)
    # Discovery and every test run go through the launcher.
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR $<TARGET_FILE:zelk_socket_namespace>)
    add_dependencies(${name} zelk_socket_namespace)
  endif()
  set(lock)
  if(ARG_RESOURCE_LOCK)
    set(lock RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
  endif()
  gtest_discover_tests(${name}
    TEST_PREFIX "${name}."
    PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 300 ${lock}
    DISCOVERY_TIMEOUT 60)
endfunction()
