# What `cmake --install` installs beside the commands: library, headers, models, manual pages, and the packages for
# CMake and pkg-config. The tree can be moved as a whole.
include(CMakePackageConfigHelpers)
set(_package "${CMAKE_INSTALL_LIBDIR}/cmake/tavrin")

install(TARGETS tavrin_proc EXPORT tavrinTargets)
install(EXPORT tavrinTargets NAMESPACE tavrin:: DESTINATION "${_package}")
install(TARGETS tavrin_pipeline EXPORT tavrinPipelineTargets)
install(EXPORT tavrinPipelineTargets NAMESPACE tavrin:: DESTINATION "${_package}")

install(DIRECTORY include/tavrin DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
# The engine's exported headers and what they include; the rest of src stays inside.
set(_engine_headers
  dsp/fft_transformer.h dsp/window.h
  inference/inference.h inference/inference_onnx.h inference/profiler.h inference/stem_flags.h
  pipeline/buffer_aggregator.h pipeline/chunk_processor.h pipeline/model_output.h
  pipeline/post_processor.h pipeline/pre_processor.h
  support/audio_view.h support/index_range.h support/tensor.h)
foreach(_header IN LISTS _engine_headers)
  cmake_path(GET _header PARENT_PATH _folder)
  install(FILES "src/${_header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tavrin/${_folder}")
endforeach()
install(DIRECTORY models/ DESTINATION "${CMAKE_INSTALL_DATADIR}/tavrin/models"
  FILES_MATCHING PATTERN "*.onnx" PATTERN "*.md")
file(GLOB _manual CONFIGURE_DEPENDS docs/man/*.1)
install(FILES ${_manual} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")

if(TAVRIN_INSTALL_RUNTIME AND UNIX AND NOT APPLE)
  file(REAL_PATH "${onnxruntime_LIBRARY}" _runtime)
  install(FILES "${_runtime}" DESTINATION "${CMAKE_INSTALL_LIBDIR}" RENAME libonnxruntime.so.1)
  cmake_path(GET _runtime PARENT_PATH _runtime_folder)
  file(GLOB _providers "${_runtime_folder}/libonnxruntime_providers_*.so")  # the runtime loads them from its own folder
  install(FILES ${_providers} DESTINATION "${CMAKE_INSTALL_LIBDIR}")
endif()

# A shared library brings or finds what it needs; with a static one, the program is linked with it.
set(_linked_with_static "")
set(_pkgconfig_libs "-ltavrin_proc")
if(NOT BUILD_SHARED_LIBS)
  set(_linked_with_static onnxruntime)
  if(NOT TARGET tavrin_pffft)
    list(APPEND _linked_with_static pffft)
    string(APPEND _pkgconfig_libs " -lpffft")
  endif()
  # By its file's name where the file has no development link beside it.
  if(TAVRIN_INSTALL_RUNTIME AND UNIX AND NOT APPLE)
    string(APPEND _pkgconfig_libs " -l:libonnxruntime.so.1 -lstdc++ -lm")
  else()
    string(APPEND _pkgconfig_libs " -lonnxruntime")
  endif()
endif()

configure_package_config_file(cmake/tavrinConfig.cmake.in "${PROJECT_BINARY_DIR}/tavrinConfig.cmake"
  INSTALL_DESTINATION "${_package}" PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_DATADIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/tavrinConfig.cmake" "${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake"
  DESTINATION "${_package}")

file(RELATIVE_PATH _to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" _to_prefix "${_to_prefix}")
configure_file(cmake/tavrin.pc.in "${PROJECT_BINARY_DIR}/tavrin.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tavrin.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
