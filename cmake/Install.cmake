# What a host gets: headers, the shared libraries, CMake packages and pkg-config files. The tree may be moved after it was
# installed: libraries find each other, and the packages their files, from where they stand.
include(CMakePackageConfigHelpers)
set(QLN_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qlnutil-1)
set(QLN_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)
# From a pkg-config file to the prefix.
file(RELATIVE_PATH QLN_PREFIX_FROM_PKGCONFIG /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" QLN_PREFIX_FROM_PKGCONFIG "${QLN_PREFIX_FROM_PKGCONFIG}")

file(GLOB QLN_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/support/qlnutil/*.h)
list(FILTER QLN_PUBLIC_HEADERS EXCLUDE REGEX "/qlnvidutil\\.h$")
install(FILES ${QLN_PUBLIC_HEADERS} DESTINATION ${QLN_INCLUDE_DIR}/qlnutil)
install(FILES ${PROJECT_SOURCE_DIR}/support/kxutil/kxutil.h DESTINATION ${QLN_INCLUDE_DIR}/kxutil)
install(FILES ${PROJECT_SOURCE_DIR}/support/timecode/kxtimecode.h DESTINATION ${QLN_INCLUDE_DIR}/timecode)

# Debug information goes into a file in the folder .debug beside each installed binary, where debuggers look, also when
# the tree was moved. Packaging that splits it off on its own turns this off.
option(QLN_SPLIT_DEBUG "Install debug information in files of its own" ON)
function(qln_split_debug_information)
  if(NOT CMAKE_OBJCOPY OR NOT QLN_SPLIT_DEBUG)
    return()
  endif()
  foreach(target IN LISTS ARGN)
    set(folder ${CMAKE_INSTALL_LIBDIR})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      set(folder ${CMAKE_INSTALL_BINDIR})
    endif()
    install(CODE "
      set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
      set(name \"$<TARGET_FILE_NAME:${target}>\")
      file(MAKE_DIRECTORY \"\${folder}/.debug\")
      execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug \"$<TARGET_FILE:${target}>\" \"\${name}.debug\"
        WORKING_DIRECTORY \"\${folder}/.debug\" COMMAND_ERROR_IS_FATAL ANY)
      execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --strip-unneeded --remove-section=.gnu_debuglink
        \"--add-gnu-debuglink=\${name}.debug\" \"\${folder}/\${name}\"
        WORKING_DIRECTORY \"\${folder}/.debug\" COMMAND_ERROR_IS_FATAL ANY)")
  endforeach()
endfunction()

# A package: its targets, its CMake files, its pkg-config files.
function(qln_install_package name)
  cmake_parse_arguments(ARG "" "" "TARGETS;PKGCONFIG" ${ARGN})
  set_target_properties(${ARG_TARGETS} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${ARG_TARGETS} EXPORT ${name}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${QLN_INCLUDE_DIR})
  qln_split_debug_information(${ARG_TARGETS})
  install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${QLN_PACKAGE_DIR}/${name})
  configure_package_config_file(cmake/${name}Config.cmake.in ${PROJECT_BINARY_DIR}/${name}Config.cmake
    INSTALL_DESTINATION ${QLN_PACKAGE_DIR}/${name})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${name}Config.cmake ${PROJECT_BINARY_DIR}/${name}ConfigVersion.cmake
    DESTINATION ${QLN_PACKAGE_DIR}/${name})
  foreach(package IN LISTS ARG_PKGCONFIG)
    configure_file(cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  endforeach()
endfunction()

qln_install_package(qlnutil TARGETS qlnutil kxutil kxtimecode PKGCONFIG qlnutil kxutil kxtimecode)
if(QLN_TOOLS)
  file(GLOB QLNMEDIA_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/media/qlnmedia/*.h)
  install(FILES ${QLNMEDIA_PUBLIC_HEADERS} DESTINATION ${QLN_INCLUDE_DIR}/qlnmedia)
  qln_install_package(qlnmedia TARGETS qlnmedia_library PKGCONFIG qlnmedia)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/inspect.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/qlnmedia)
  install(TARGETS qlnmedia RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  qln_split_debug_information(qlnmedia)
endif()
