# The node fuzz targets drive the node library the way the camera framework does: an executable
# holds the host kit (platform libraries and the emulator's device root, host session, metadata
# pools and vendor-tag registry) and loads the node library with dlopen, which installs the
# measurement library and the logical camera table into a device root and maps them at run time.
# Everything is built here with clang, instrumented, so a fault anywhere on those paths stops the
# run. The executables export their symbols: the node library finds the platform functions in them,
# as it finds the platform libraries in the camera provider on a device.

# Sanitizers without coverage: for code the fuzzer should not steer by (the measurement library's
# pixel loops, the harness's own image painting), where comparison tracing would only cost time.
set(_checked_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)

set(_zelk_platform_dir ${ZELK_SOURCE_DIR}/host/platform)
set(_zelk_emulator_dir ${ZELK_SOURCE_DIR}/host/emulator)

# The host kit: every object is linked into each target (an object library, not an archive,
# so that nothing the node needs is left out for want of a reference from the target).
add_library(fuzz_chihost OBJECT
  ${_zelk_platform_dir}/common/keyvaluefile.cpp
  ${_zelk_platform_dir}/chinodeutils/chinodeutils.cpp
  ${_zelk_platform_dir}/commonutils/camxosutils.cpp
  ${_zelk_platform_dir}/chilog/chilog.cpp
  ${_zelk_platform_dir}/settings/camxsettingsmanager.cpp
  ${_zelk_platform_dir}/properties/properties.cpp
  ${_zelk_emulator_dir}/src/deviceroot.cpp
  ${_zelk_emulator_dir}/src/hostsession.cpp
  ${_zelk_emulator_dir}/src/metadatapools.cpp
  ${_zelk_emulator_dir}/src/nodelibrary.cpp
  ${_zelk_emulator_dir}/src/vendortagregistry.cpp)
target_include_directories(fuzz_chihost PUBLIC
  ${ZELK_SOURCE_DIR}/platform/include ${_zelk_platform_dir}/include ${_zelk_emulator_dir}/include
  /usr/include/android)
target_include_directories(fuzz_chihost PRIVATE ${_zelk_platform_dir}/common)
target_compile_options(fuzz_chihost PRIVATE ${_warning_flags} -g -O1 ${_cover_flags})

# com.zelk.node.zelkoisverify.so with its calibration file manager, exporting only ChiNodeEntry.
file(GLOB _zelk_node_sources CONFIGURE_DEPENDS ${ZELK_SOURCE_DIR}/node/*.cpp)
add_library(fuzz_zelkoisverify SHARED ${_zelk_node_sources}
  ${ZELK_SOURCE_DIR}/calibration/oiscalibrationfile.cpp
  ${ZELK_SOURCE_DIR}/calibration/oiscalibrationrewrite.cpp
  ${ZELK_SOURCE_DIR}/calibration/persistfileio.cpp)
set_target_properties(fuzz_zelkoisverify PROPERTIES
  PREFIX "" OUTPUT_NAME "com.zelk.node.zelkoisverify"
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
  LINK_DEPENDS ${ZELK_SOURCE_DIR}/node/zelkoisverify.map)
target_include_directories(fuzz_zelkoisverify PRIVATE
  ${ZELK_SOURCE_DIR}/node ${ZELK_SOURCE_DIR}/calibration ${ZELK_SOURCE_DIR}/platform/include
  /usr/include/android)
target_compile_options(fuzz_zelkoisverify PRIVATE ${_warning_flags} -g -O1 -ffp-contract=off ${_cover_flags})
target_link_options(fuzz_zelkoisverify PRIVATE ${_cover_flags}
  -Wl,--version-script=${ZELK_SOURCE_DIR}/node/zelkoisverify.map)
target_link_libraries(fuzz_zelkoisverify PRIVATE cjson ${ZELK_FUZZ_ANDROID_LOG} ${ZELK_FUZZ_ANDROID_CUTILS})

# The run-time libraries the node maps: vendor/lib64/libOISHighFPS.so and
# odm/lib64/camera/libchxlogicalcameratable.so.
file(GLOB _zelk_algo_sources CONFIGURE_DEPENDS ${ZELK_SOURCE_DIR}/algo/src/*.cpp)
add_library(fuzz_oishighfps SHARED ${_zelk_algo_sources})
set_target_properties(fuzz_oishighfps PROPERTIES OUTPUT_NAME OISHighFPS
  CXX_VISIBILITY_PRESET hidden LINK_DEPENDS ${ZELK_SOURCE_DIR}/algo/libOISHighFPS.map)
target_include_directories(fuzz_oishighfps PRIVATE ${ZELK_SOURCE_DIR}/platform/include)
target_compile_options(fuzz_oishighfps PRIVATE ${_warning_flags} -g -O2 -ffp-contract=off
  -fno-trapping-math ${_checked_flags})
target_link_options(fuzz_oishighfps PRIVATE ${_checked_flags}
  -Wl,--version-script=${ZELK_SOURCE_DIR}/algo/libOISHighFPS.map)

add_library(fuzz_logicalcameratable SHARED
  ${ZELK_SOURCE_DIR}/host/services/logicalcameratable/logicalcameratable.cpp)
set_target_properties(fuzz_logicalcameratable PROPERTIES OUTPUT_NAME chxlogicalcameratable
  CXX_VISIBILITY_PRESET hidden)
target_include_directories(fuzz_logicalcameratable PRIVATE ${ZELK_SOURCE_DIR}/platform/include)
target_compile_options(fuzz_logicalcameratable PRIVATE ${_warning_flags} -g -O1 ${_cover_flags})
target_link_options(fuzz_logicalcameratable PRIVATE ${_cover_flags}
  -Wl,--version-script=${ZELK_SOURCE_DIR}/host/services/logicalcameratable/logicalcameratable.map)

# The harness shared by the node targets: device root, host session, input reader, image lists.
add_library(fuzz_nodeharness OBJECT nodefuzzhost.cpp nodefuzzimages.cpp)
target_include_directories(fuzz_nodeharness PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(fuzz_nodeharness PUBLIC fuzz_chihost)
target_compile_options(fuzz_nodeharness PRIVATE ${_warning_flags} -g -O1 ${_checked_flags})
target_compile_definitions(fuzz_nodeharness PRIVATE
  ZELK_FUZZ_NODE_LIBRARY="$<TARGET_FILE:fuzz_zelkoisverify>"
  ZELK_FUZZ_OIS_LIBRARY="$<TARGET_FILE:fuzz_oishighfps>"
  ZELK_FUZZ_CAMERA_TABLE_LIBRARY="$<TARGET_FILE:fuzz_logicalcameratable>")

function(zelk_node_fuzz_target target)
  add_executable(${target} ${target}.cpp)
  target_link_libraries(${target} PRIVATE fuzz_nodeharness fuzz_chihost
    ${ZELK_FUZZ_ANDROID_LOG} ${ZELK_FUZZ_ANDROID_CUTILS} ${CMAKE_DL_LIBS} Threads::Threads)
  target_compile_options(${target} PRIVATE ${_warning_flags} -g -O1 ${_fuzz_flags})
  target_link_options(${target} PRIVATE ${_fuzz_flags})
  set_target_properties(${target} PROPERTIES ENABLE_EXPORTS ON BUILD_RPATH ${ZELK_ANDROID_LIBDIR})
  add_dependencies(${target} fuzz_zelkoisverify fuzz_oishighfps fuzz_logicalcameratable)
endfunction()

zelk_node_fuzz_target(nodeproperties_fuzz)
zelk_node_fuzz_target(noderecords_fuzz)
zelk_node_fuzz_target(nodeimages_fuzz)
zelk_node_fuzz_target(nodedebugimages_fuzz)

# The measurement library on its own, its sources built into the target with coverage so that the
# fuzzer steers through its stages (the node targets load it uninstrumented).
add_executable(oishighfps_fuzz oishighfps_fuzz.cpp ${_zelk_algo_sources})
target_include_directories(oishighfps_fuzz PRIVATE ${ZELK_SOURCE_DIR}/platform/include)
target_compile_options(oishighfps_fuzz PRIVATE ${_warning_flags} -g -O2 -ffp-contract=off -fno-trapping-math
  ${_fuzz_flags})
target_link_options(oishighfps_fuzz PRIVATE ${_fuzz_flags})
