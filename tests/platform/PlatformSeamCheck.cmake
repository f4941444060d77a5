# Fails, naming each file and include, when a source outside src/platform/ includes a backend.
# cmake -DSOURCE_DIR=<src> -P PlatformSeamCheck.cmake
set(_backend_includes
  "platform/(x11|wayland|pulse|ocr|desktop|camera)/"
  "xcb/" "X11/" "pulse/" "pipewire/" "spa/" "wayland-" "tesseract/" "leptonica/" "linux/videodev2" "canberra\\.h" "libudev\\.h")
list(JOIN _backend_includes "|" _alternatives)
set(_pattern "#[ \t]*include[ \t]*[<\"](${_alternatives})")

file(GLOB_RECURSE _sources "${SOURCE_DIR}/*.h" "${SOURCE_DIR}/*.cpp")
set(_leaks "")
foreach(_file ${_sources})
  file(RELATIVE_PATH _relative "${SOURCE_DIR}" "${_file}")
  if(_relative MATCHES "^platform/")
    continue()
  endif()
  file(STRINGS "${_file}" _lines REGEX "${_pattern}")
  foreach(_line ${_lines})
    string(STRIP "${_line}" _line)
    list(APPEND _leaks "src/${_relative}: ${_line}")
  endforeach()
endforeach()

list(LENGTH _sources _count)
if(_count EQUAL 0)
  message(FATAL_ERROR "no sources found under ${SOURCE_DIR}")
endif()
if(_leaks)
  list(JOIN _leaks "\n  " _report)
  message(FATAL_ERROR "A backend's header is included outside src/platform/; put the interface in "
    "src/platform/ and reach the backend through Platform:\n  ${_report}")
endif()
message(STATUS "${_count} sources checked: only src/platform/ includes a backend")
