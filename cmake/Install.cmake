# Installation: the library, the public headers, a pkg-config file and a
# CMake package, so that clients use either
#   g++ app.cpp $(pkg-config --cflags --libs veltrane)
# or
#   find_package(veltrane) + target_link_libraries(app veltrane::veltrane)
include(CMakePackageConfigHelpers)

install(TARGETS veltrane EXPORT veltraneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES ${CMAKE_SOURCE_DIR}/include/veltrane.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
list(TRANSFORM VELTRANE_PLATFORM_PUBLIC_HEADERS PREPEND ${CMAKE_SOURCE_DIR}/platform/ OUTPUT_VARIABLE veltrane_platform_headers)
install(FILES ${veltrane_platform_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltrane/platform)
install(DIRECTORY ${VELTRANE_BUILD_INCLUDE}/veltrane/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltrane
  FILES_MATCHING PATTERN "*.h" PATTERN "platform" EXCLUDE)

# The prefix is found from the .pc file's own place, so the installed tree
# can be moved (and installed with --prefix) without rewriting it.
file(RELATIVE_PATH VELTRANE_PC_TO_PREFIX /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
set(VELTRANE_PC_PREFIX "\${pcfiledir}/${VELTRANE_PC_TO_PREFIX}")
set(VELTRANE_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
set(VELTRANE_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/veltrane.pc.in ${CMAKE_BINARY_DIR}/veltrane.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/veltrane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT veltraneTargets NAMESPACE veltrane:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltrane)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/veltraneConfig.cmake.in
  ${CMAKE_BINARY_DIR}/veltraneConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltrane)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/veltraneConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/veltraneConfig.cmake ${CMAKE_BINARY_DIR}/veltraneConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltrane)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/veltrane/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltrane
  FILES_MATCHING PATTERN "*.h")
