# Manual pages and completions: of the tool from its option tables, of the libraries from the docstrings of their installed
# headers. What they show of version and date is the same in every build of a release.
set(QLN_VERSION_DATE 2026-11-22)

find_package(Python3 QUIET COMPONENTS Interpreter)
find_program(QLN_DOXYGEN doxygen)
# Instrumented builds and those for other machines leave them to the one that hosts get.
if(QLN_TOP_LEVEL AND QLN_TOOLS AND Python3_Interpreter_FOUND AND NOT QLN_SANITIZE AND NOT CMAKE_CROSSCOMPILING
    AND CMAKE_BUILD_TYPE MATCHES "^Rel")
  set(manuals_default ON)
else()
  set(manuals_default OFF)
endif()
option(QLN_MANUALS "Make manual pages and completions; those of the libraries need Doxygen" ${manuals_default})
if(NOT QLN_MANUALS)
  return()
endif()
if(NOT Python3_Interpreter_FOUND)
  message(FATAL_ERROR "QLN_MANUALS needs Python 3")
endif()

set(scripts ${PROJECT_SOURCE_DIR}/docs/reference)
set(share ${PROJECT_BINARY_DIR}/manuals)
set(made "")

if(QLN_TOOLS)
  set(tables ${share}/option_tables.json)
  string(JOIN ":" library_folders $<TARGET_FILE_DIR:qlnmedia_library> $<TARGET_FILE_DIR:qlnutil> $<TARGET_FILE_DIR:kxutil>
    $<TARGET_FILE_DIR:kxtimecode>)
  add_custom_command(OUTPUT ${tables}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${share}
    # Where packages are built, programs do not say where their libraries are.
    COMMAND ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${library_folders}" $<TARGET_FILE:option_tables> > ${tables}
    DEPENDS option_tables VERBATIM)
  add_custom_command(OUTPUT ${share}/tool.stamp
    COMMAND ${Python3_EXECUTABLE} -B ${scripts}/tool_manuals.py ${tables} ${PROJECT_VERSION} ${QLN_VERSION_DATE} ${share}/man
    COMMAND ${Python3_EXECUTABLE} -B ${scripts}/completions.py ${tables} ${share}/completions
    COMMAND ${CMAKE_COMMAND} -E touch ${share}/tool.stamp
    DEPENDS ${tables} ${scripts}/tool_manuals.py ${scripts}/completions.py ${scripts}/roff.py ${scripts}/commands.md
    COMMENT "Writing the manual pages and completions of qlnmedia" VERBATIM)
  list(APPEND made ${share}/tool.stamp)
  install(DIRECTORY ${share}/completions/ DESTINATION ${CMAKE_INSTALL_DATADIR} OPTIONAL)
endif()

if(QLN_DOXYGEN)
  set(QLN_REFERENCE_DIR ${share}/reference)
  set(QLN_REFERENCE_PAGES "")
  set(QLN_REFERENCE_XML YES)
  set(QLN_REFERENCE_HTML NO)
  # Warnings change with Doxygen's version: a test looks at them, and no build ends over them.
  set(QLN_REFERENCE_WARNINGS NO)
  set(QLN_REFERENCE_LOG ${share}/reference/warnings.txt)
  configure_file(${scripts}/Doxyfile.in ${share}/Doxyfile @ONLY)
  # For scripts/docs.sh, which has the version that the list of packages names.
  set(QLN_REFERENCE_DIR ${PROJECT_SOURCE_DIR}/build/docs)
  set(QLN_REFERENCE_PAGES ${PROJECT_SOURCE_DIR}/docs/guide.md)
  set(QLN_REFERENCE_XML NO)
  set(QLN_REFERENCE_HTML YES)
  set(QLN_REFERENCE_WARNINGS FAIL_ON_WARNINGS)
  set(QLN_REFERENCE_LOG "")
  configure_file(${scripts}/Doxyfile.in ${share}/Doxyfile.html @ONLY)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/support/*/*.h ${PROJECT_SOURCE_DIR}/media/qlnmedia/*.h)
  add_custom_command(OUTPUT ${share}/library.stamp
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${share}/reference/xml
    COMMAND ${CMAKE_COMMAND} -E make_directory ${share}/reference
    COMMAND ${QLN_DOXYGEN} ${share}/Doxyfile
    COMMAND ${Python3_EXECUTABLE} -B ${scripts}/library_manuals.py ${share}/reference/xml ${PROJECT_VERSION}
      ${QLN_VERSION_DATE} ${share}/man
    COMMAND ${CMAKE_COMMAND} -E touch ${share}/library.stamp
    DEPENDS ${headers} ${share}/Doxyfile ${scripts}/library_manuals.py ${scripts}/roff.py
    COMMENT "Writing the manual pages of the libraries" VERBATIM)
  list(APPEND made ${share}/library.stamp)
endif()

add_custom_target(manuals ALL DEPENDS ${made})
install(DIRECTORY ${share}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR} OPTIONAL)
