# The distribution's Python, for the package qlnutil: its headers, the ending of its extensions, its version. Sets
# QLN_PYTHON_FOUND where it has headers and pybind11 is installed. QLN_PYTHON_EXECUTABLE names another interpreter.
set(QLN_PYTHON_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "The interpreter that the package qlnutil is built for")
set(QLN_PYTHON_FOUND FALSE)
execute_process(
  COMMAND ${QLN_PYTHON_EXECUTABLE} -c "import os, sysconfig as s
d = s.get_path('include')
print(d if os.path.exists(os.path.join(d, 'Python.h')) else '', s.get_config_var('EXT_SUFFIX'), s.get_python_version(), sep=';')"
  OUTPUT_VARIABLE QLN_PYTHON_ANSWER OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE QLN_PYTHON_RESULT)
if(QLN_PYTHON_RESULT EQUAL 0)
  list(GET QLN_PYTHON_ANSWER 0 QLN_PYTHON_INCLUDE_DIR)
  list(GET QLN_PYTHON_ANSWER 1 QLN_PYTHON_SUFFIX)
  list(GET QLN_PYTHON_ANSWER 2 QLN_PYTHON_VERSION)
  find_file(QLN_PYBIND11_HEADER pybind11/pybind11.h)
  if(QLN_PYTHON_INCLUDE_DIR AND QLN_PYBIND11_HEADER)
    set(QLN_PYTHON_FOUND TRUE)
  endif()
endif()
