# What `cmake --install` puts where: libraries, headers (by their file sets), the simulator's program, the CMake
# package NvxQtCommon and the pkg-config file. Included last, when all targets are there.
include(CMakePackageConfigHelpers)

set(NVX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/NvxQtCommon)

install(TARGETS NvxQtCommon EXPORT NvxQtCommonTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Installed libraries and programs find each other wherever the tree lies.
file(RELATIVE_PATH NVX_BIN_TO_LIB /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})

if(TARGET nvx_simulator)
  set_target_properties(nvx_simulator PROPERTIES EXPORT_NAME Simulator INSTALL_RPATH "$ORIGIN")
  set_target_properties(nvx_listed_ports PROPERTIES EXPORT_NAME ListedPorts)
  install(TARGETS nvx_simulator nvx_listed_ports EXPORT NvxQtCommonTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
if(TARGET recorder-simulator)
  set_target_properties(recorder-simulator PROPERTIES INSTALL_RPATH "$ORIGIN/${NVX_BIN_TO_LIB}")
  install(TARGETS recorder-simulator RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT NvxQtCommonTargets NAMESPACE NvxQtCommon:: DESTINATION ${NVX_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/NvxQtCommonConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/NvxQtCommonConfig.cmake INSTALL_DESTINATION ${NVX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/NvxQtCommonConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/NvxQtCommonConfig.cmake
  ${PROJECT_BINARY_DIR}/package/NvxQtCommonConfigVersion.cmake
  DESTINATION ${NVX_PACKAGE_DIR})

# The pkg-config file finds its prefix from where it lies, so that a moved tree stays usable.
file(RELATIVE_PATH NVX_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/NvxQtCommon.pc.in ${PROJECT_BINARY_DIR}/package/NvxQtCommon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/NvxQtCommon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
