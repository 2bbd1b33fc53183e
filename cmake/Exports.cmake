# The names that leave a library: one a line in a file, everything else stays local (weak symbols of library templates
# would slip out otherwise).

# Reads the list of `target` and links it with a version script of these names. VERSION names the version that they
# get; without it they get none, so that a host's own library can stand in for this one.
function(qln_export_names target list)
  cmake_parse_arguments(ARG "" "VERSION" "" ${ARGN})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} names REGEX "^[^#]")
  set(c_names "")
  set(cxx_names "")
  foreach(name IN LISTS names)
    if(name MATCHES "^[A-Za-z_0-9]+$")
      string(APPEND c_names "    ${name};\n")
    else()
      string(APPEND cxx_names "      \"${name}\";\n")
      if(name MATCHES "^vtable for (.*)$")
        # What a host needs to derive from the class; type information is no entry point of its own.
        string(APPEND cxx_names
          "      \"typeinfo for ${CMAKE_MATCH_1}\";\n      \"typeinfo name for ${CMAKE_MATCH_1}\";\n")
      endif()
    endif()
  endforeach()
  if(cxx_names)
    set(cxx_names "    extern \"C++\" {\n${cxx_names}    };\n")
  endif()
  set(map ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  file(CONFIGURE OUTPUT ${map} @ONLY CONTENT "@ARG_VERSION@ {\n  global:\n@c_names@@cxx_names@  local: *;\n};\n")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
endfunction()
