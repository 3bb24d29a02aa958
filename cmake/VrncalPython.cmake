# Finds what the Python module needs: the interpreter it is built and tested
# for (with its headers and NumPy) and pybind11.  The interpreter is pinned to
# the system's /usr/bin/python3 when it exists, because the first `python3` on
# PATH may be another installation without the Debian packages; pass
# -DPython_EXECUTABLE=... to build for another one.
#
# Sets VRNCAL_PYTHON_FOUND, and VRNCAL_PYTHON_INSTALL_DIR (a cache variable):
# where `cmake --install` puts the package, relative to the install prefix
# unless given as an absolute path.
if(EXISTS /usr/bin/python3)
  set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Python interpreter for the vrncal module")
endif()
set(VRNCAL_PYTHON_FOUND OFF)
find_package(Python 3.8 COMPONENTS Interpreter Development.Module NumPy QUIET)
if(Python_FOUND)
  find_package(pybind11 2.6 CONFIG QUIET)
  if(pybind11_FOUND)
    set(VRNCAL_PYTHON_FOUND ON)
  endif()
endif()

if(Python_FOUND AND NOT DEFINED CACHE{VRNCAL_PYTHON_INSTALL_DIR})
  # The last three parts of the interpreter's own package folder:
  # lib/python3.11/dist-packages on Debian, lib/python3.11/site-packages elsewhere.
  execute_process(
    COMMAND ${Python_EXECUTABLE} -c
      "import sysconfig, pathlib; print('/'.join(pathlib.Path(sysconfig.get_path('platlib')).parts[-3:]))"
    OUTPUT_VARIABLE site_dir OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR site_dir STREQUAL "")
    set(site_dir lib/python${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}/site-packages)
  endif()
  set(VRNCAL_PYTHON_INSTALL_DIR ${site_dir} CACHE STRING
      "Folder for the vrncal Python package, relative to the install prefix (or absolute)")
endif()
