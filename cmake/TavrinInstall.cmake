# What `cmake --install` installs beside the commands: library, headers, models, manual pages, and the packages for
# CMake and pkg-config. The tree can be moved as a whole. Components: runtime (what a program needs to run), development,
# tools and models.
include(CMakePackageConfigHelpers)
set(_package "${CMAKE_INSTALL_LIBDIR}/cmake/tavrin")

install(TARGETS tavrin_proc EXPORT tavrinTargets
  RUNTIME COMPONENT runtime
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(EXPORT tavrinTargets NAMESPACE tavrin:: DESTINATION "${_package}" COMPONENT development)
install(TARGETS tavrin_pipeline EXPORT tavrinPipelineTargets)
install(EXPORT tavrinPipelineTargets NAMESPACE tavrin:: DESTINATION "${_package}" COMPONENT development)

install(DIRECTORY include/tavrin DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
# The engine's exported headers and what they include; the rest of src stays inside.
set(_engine_headers
  dsp/fft_transformer.h dsp/window.h
  inference/inference.h inference/inference_onnx.h inference/profiler.h inference/stem_flags.h
  pipeline/buffer_aggregator.h pipeline/chunk_processor.h pipeline/model_window.h pipeline/overlap_add.h
  pipeline/post_processor.h pipeline/pre_processor.h pipeline/sample_ring.h
  support/index_range.h support/tensor.h)
foreach(_header IN LISTS _engine_headers)
  cmake_path(GET _header PARENT_PATH _folder)
  install(FILES "src/${_header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tavrin/${_folder}" COMPONENT development)
endforeach()
install(DIRECTORY models/ DESTINATION "${CMAKE_INSTALL_DATADIR}/tavrin/models" COMPONENT models
  FILES_MATCHING PATTERN "*.onnx" PATTERN "*.md")

# Beside the library, from where that loads it. Packages are built with DESTDIR set: they name the system's own runtime
# as a dependency instead of bringing one.
if(TAVRIN_INSTALL_RUNTIME AND UNIX AND NOT APPLE)
  file(REAL_PATH "${onnxruntime_LIBRARY}" _runtime)
  cmake_path(GET _runtime PARENT_PATH _runtime_folder)
  file(GLOB _providers "${_runtime_folder}/libonnxruntime_providers_*.so")  # the runtime loads them from its own folder
  cmake_path(IS_ABSOLUTE CMAKE_INSTALL_LIBDIR _is_absolute)
  set(_into "${CMAKE_INSTALL_LIBDIR}/${TAVRIN_RUNTIME_SUBDIR}")
  if(NOT _is_absolute)
    string(PREPEND _into "\${CMAKE_INSTALL_PREFIX}/")
  endif()
  install(CODE "
    if(\"${TAVRIN_INSTALL_RUNTIME}\" STREQUAL \"AUTO\" AND NOT \"\$ENV{DESTDIR}\" STREQUAL \"\")
      message(STATUS \"DESTDIR is set: ONNX Runtime is not installed (-DTAVRIN_INSTALL_RUNTIME=ON does it)\")
    else()
      file(INSTALL \"${_runtime}\" DESTINATION \"${_into}\" RENAME ${onnxruntime_SONAME})
      file(INSTALL ${_providers} DESTINATION \"${_into}\")
    endif()" COMPONENT runtime)
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
  DESTINATION "${_package}" COMPONENT development)

# Relative to the file itself where the folders lie below one prefix, so that the tree can be moved.
file(RELATIVE_PATH _prefix_from_pc "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
foreach(_folder IN ITEMS INCLUDEDIR LIBDIR DATADIR)
  file(RELATIVE_PATH _pc_${_folder} "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_${_folder}}")
endforeach()
configure_file(cmake/tavrin.pc.in "${PROJECT_BINARY_DIR}/tavrin.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tavrin.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
