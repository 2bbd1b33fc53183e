# What a host gets: headers, the shared libraries, CMake packages and pkg-config files.
include(CMakePackageConfigHelpers)
set(QLN_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qlnutil-1)

file(GLOB QLN_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/support/qlnutil/*.h)
list(FILTER QLN_PUBLIC_HEADERS EXCLUDE REGEX "/qlnvidutil\\.h$")
install(FILES ${QLN_PUBLIC_HEADERS} DESTINATION ${QLN_INCLUDE_DIR}/qlnutil)
install(FILES ${PROJECT_SOURCE_DIR}/support/kxutil/kxutil.h DESTINATION ${QLN_INCLUDE_DIR}/kxutil)
install(FILES ${PROJECT_SOURCE_DIR}/support/timecode/kxtimecode.h DESTINATION ${QLN_INCLUDE_DIR}/timecode)

set(QLN_INSTALLED_LIBRARIES qlnutil kxutil kxtimecode)
install(TARGETS ${QLN_INSTALLED_LIBRARIES} EXPORT qlnutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${QLN_INCLUDE_DIR})
if(QLN_TOOLS AND TARGET qlnmedia)
  install(TARGETS qlnmedia RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT qlnutilTargets NAMESPACE qlnutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qlnutil)

configure_package_config_file(cmake/qlnutilConfig.cmake.in ${PROJECT_BINARY_DIR}/qlnutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qlnutil)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qlnutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qlnutilConfig.cmake ${PROJECT_BINARY_DIR}/qlnutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qlnutil)

foreach(package qlnutil kxutil kxtimecode)
  configure_file(cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
