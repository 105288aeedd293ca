# What `make install` installs beside the command: the library with its runtime, headers, models, CMake package.
include(CMakePackageConfigHelpers)

option(TAVRIN_INSTALL_RUNTIME "Install ONNX Runtime beside the library" ${PROJECT_IS_TOP_LEVEL})
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
  pipeline/buffer_aggregator.h pipeline/chunk_processor.h pipeline/post_processor.h pipeline/pre_processor.h
  support/audio_view.h support/index_range.h support/tensor.h)
foreach(_header IN LISTS _engine_headers)
  cmake_path(GET _header PARENT_PATH _folder)
  install(FILES "src/${_header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tavrin/${_folder}")
endforeach()
install(FILES models/centre.onnx models/centre.md DESTINATION "${CMAKE_INSTALL_DATADIR}/tavrin/models")

if(TAVRIN_INSTALL_RUNTIME AND UNIX AND NOT APPLE)
  file(REAL_PATH "${onnxruntime_LIBRARY}" _runtime)
  install(FILES "${_runtime}" DESTINATION "${CMAKE_INSTALL_LIBDIR}" RENAME libonnxruntime.so.1)
endif()

configure_package_config_file(cmake/tavrinConfig.cmake.in "${PROJECT_BINARY_DIR}/tavrinConfig.cmake"
  INSTALL_DESTINATION "${_package}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/tavrinConfig.cmake" "${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake"
  DESTINATION "${_package}")
