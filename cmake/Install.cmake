# Installs liborvane.so, orvane.h, the CMake package (imported target orvane::orvane) and
# orvane.pc. Both package files locate the prefix from their own place, so an installed tree
# can be moved or installed with `cmake --install BUILD --prefix DIR`.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ORVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orvane)
set(ORVANE_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS orvane EXPORT orvaneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT orvaneTargets NAMESPACE orvane:: DESTINATION ${ORVANE_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvaneConfig.cmake
  INSTALL_DESTINATION ${ORVANE_CMAKE_DIR})
# The shared object's name carries major.minor, so only those must match.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvaneConfig.cmake ${PROJECT_BINARY_DIR}/orvaneConfigVersion.cmake
  DESTINATION ${ORVANE_CMAKE_DIR})

file(RELATIVE_PATH ORVANE_PC_PREFIX_FROM_PCDIR /prefix/${ORVANE_PC_DIR} /prefix)
string(REGEX REPLACE "/$" "" ORVANE_PC_PREFIX_FROM_PCDIR ${ORVANE_PC_PREFIX_FROM_PCDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/orvane.pc.in ${PROJECT_BINARY_DIR}/orvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvane.pc DESTINATION ${ORVANE_PC_DIR})
