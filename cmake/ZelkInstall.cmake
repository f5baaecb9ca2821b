# "cmake --install <build> --prefix P": the oisverify command line with everything it needs at run
# time, relocatable as a whole. The tool goes to P/bin; the node library, the two libraries the
# node maps at run time (measurement, logical camera table), the CHI host emulator and the host
# platform libraries go to the tool's own folder P/lib/oisverify, so that generic names such as
# libchilog.so never land in a system library folder. Nothing is found through absolute paths:
# the tool's RPATH is $ORIGIN/../lib/oisverify, each library's is $ORIGIN, the tool finds the node
# library from /proc/self/exe and the emulator takes the run-time libraries beside itself. Android's
# liblog and libcutils stay where Debian puts them, in a folder of their own outside the loader's
# default path, which every RPATH names after the prefix's own folder.
set(ZELK_INSTALL_LIBDIR lib/oisverify)

set(_zelk_runtime_libraries
  zelkoisverify OISHighFPS chxlogicalcameratable chihost_emulator
  chinodeutils camxcommonutils chilog camxsettingsmanager chihostproperties)

set_target_properties(oisverify PROPERTIES INSTALL_RPATH "$ORIGIN/../${ZELK_INSTALL_LIBDIR};${ZELK_ANDROID_LIBDIR}")
set_target_properties(${_zelk_runtime_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN;${ZELK_ANDROID_LIBDIR}")

install(TARGETS oisverify RUNTIME DESTINATION bin)
install(TARGETS ${_zelk_runtime_libraries} LIBRARY DESTINATION ${ZELK_INSTALL_LIBDIR})
