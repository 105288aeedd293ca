# Finds ONNX Runtime as an official release folder, a system package or any prefix lays it out.
#
# Target: onnxruntime::onnxruntime. Variables: onnxruntime_FOUND, onnxruntime_VERSION_API (the interface version of the
# headers), onnxruntime_INCLUDE_DIR, onnxruntime_LIBRARY, onnxruntime_SONAME (what programs that are linked with it ask
# for: "libonnxruntime.so.1" of the official releases, another one of Debian's package).
find_path(onnxruntime_INCLUDE_DIR onnxruntime_cxx_api.h
  PATH_SUFFIXES onnxruntime onnxruntime/core/session include)
find_library(onnxruntime_LIBRARY NAMES onnxruntime)

if(onnxruntime_INCLUDE_DIR)
  file(STRINGS "${onnxruntime_INCLUDE_DIR}/onnxruntime_c_api.h" _line REGEX "^#define ORT_API_VERSION [0-9]+")
  string(REGEX MATCH "[0-9]+" onnxruntime_VERSION_API "${_line}")
endif()

set(onnxruntime_SONAME libonnxruntime.so.1)
if(onnxruntime_LIBRARY AND CMAKE_READELF)
  execute_process(COMMAND "${CMAKE_READELF}" -d "${onnxruntime_LIBRARY}" OUTPUT_VARIABLE _dynamic ERROR_QUIET)
  if(_dynamic MATCHES "soname: \\[(libonnxruntime\\.so\\.[^]]+)\\]")
    set(onnxruntime_SONAME "${CMAKE_MATCH_1}")
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(onnxruntime
  REQUIRED_VARS onnxruntime_LIBRARY onnxruntime_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup.sh, or name its prefix in CMAKE_PREFIX_PATH")
mark_as_advanced(onnxruntime_INCLUDE_DIR onnxruntime_LIBRARY)

if(onnxruntime_FOUND AND NOT TARGET onnxruntime::onnxruntime)
  add_library(onnxruntime::onnxruntime UNKNOWN IMPORTED)
  set_target_properties(onnxruntime::onnxruntime PROPERTIES
    IMPORTED_LOCATION "${onnxruntime_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${onnxruntime_INCLUDE_DIR}")
endif()
