# Installs headers, libraries, the CMake package TrackerUtil and trackerutil.pc.
include(CMakePackageConfigHelpers)

set(TRACKER_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/TrackerUtil)
install(TARGETS trackerutil EXPORT TrackerUtilTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT TrackerUtilTargets NAMESPACE TrackerUtil:: DESTINATION ${TRACKER_CMAKE_DIR})

configure_package_config_file(cmake/TrackerUtilConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/TrackerUtilConfig.cmake
                              INSTALL_DESTINATION ${TRACKER_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/TrackerUtilConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TrackerUtilConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/TrackerUtilConfigVersion.cmake
        DESTINATION ${TRACKER_CMAKE_DIR})

# The .pc file locates the prefix from its own place, so `cmake --install --prefix` anywhere works.
set(TRACKER_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TRACKER_PC_TO_PREFIX /${TRACKER_PC_DIR} /)
configure_file(cmake/trackerutil.pc.in ${CMAKE_CURRENT_BINARY_DIR}/trackerutil.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/trackerutil.pc DESTINATION ${TRACKER_PC_DIR})
