# Part of `cmake --install`: makes the installed package importable by the
# interpreter it was built for, without PYTHONPATH, by a file veltrane.pth in
# that interpreter's site-packages naming the package's directory. Skipped for
# staged installs (DESTDIR), sanitizer builds, and scratch installs inside the
# build tree (the tests'); VELTRANE_PYTHON_PTH_DIR in the environment names
# another directory for the file.
set(package_root "${CMAKE_INSTALL_PREFIX}/${VELTRANE_PYTHON_INSTALL_DIR}")
if(DEFINED ENV{VELTRANE_PYTHON_PTH_DIR})
  set(site "$ENV{VELTRANE_PYTHON_PTH_DIR}")
elseif(DEFINED ENV{DESTDIR} AND NOT "$ENV{DESTDIR}" STREQUAL "")
  return()
elseif(VELTRANE_SANITIZE)
  message(STATUS "veltrane.pth not written: a sanitizer build is imported with the sanitizer runtime preloaded")
  return()
else()
  file(REAL_PATH "${CMAKE_INSTALL_PREFIX}" prefix_real)
  file(REAL_PATH "${VELTRANE_BINARY_DIR}" binary_real)
  string(FIND "${prefix_real}/" "${binary_real}/" inside)
  if(inside EQUAL 0)
    return()
  endif()
  execute_process(
    COMMAND "${VELTRANE_PYTHON_EXECUTABLE}" -c
      "import sys, sysconfig, os; p = os.path.realpath(sys.argv[1]); print('' if p in map(os.path.realpath, sys.path) else sysconfig.get_path('purelib'))"
      "${package_root}"
    OUTPUT_VARIABLE site OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  if(failed OR site STREQUAL "")
    return()
  endif()
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" -E make_directory "${site}" RESULT_VARIABLE failed ERROR_QUIET)
if(NOT failed)
  execute_process(COMMAND "${CMAKE_COMMAND}" -E touch "${site}/veltrane.pth" RESULT_VARIABLE failed ERROR_QUIET)
endif()
if(failed)
  message(WARNING "cannot write to ${site}: add ${package_root} to PYTHONPATH to import veltrane")
  return()
endif()
message(STATUS "Installing: ${site}/veltrane.pth -> ${package_root}")
file(WRITE "${site}/veltrane.pth" "${package_root}\n")
