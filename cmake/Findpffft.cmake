# Finds PFFFT as an installed library or as its C sources, which are then built into a static library.
#
# Target: pffft::pffft. Variables: pffft_FOUND, pffft_INCLUDE_DIR, pffft_LIBRARY or pffft_SOURCE.
find_path(pffft_INCLUDE_DIR pffft.h PATH_SUFFIXES pffft src)
find_library(pffft_LIBRARY NAMES pffft)
if(NOT pffft_LIBRARY)
  find_file(pffft_SOURCE pffft.c PATH_SUFFIXES src)
endif()

if(pffft_LIBRARY OR NOT pffft_SOURCE)
  set(_pffft_needed pffft_LIBRARY)
else()
  set(_pffft_needed pffft_SOURCE)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(pffft
  REQUIRED_VARS ${_pffft_needed} pffft_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup.sh, or name its prefix in CMAKE_PREFIX_PATH")
mark_as_advanced(pffft_INCLUDE_DIR pffft_LIBRARY pffft_SOURCE)

if(pffft_FOUND AND NOT TARGET pffft::pffft)
  if(pffft_LIBRARY)
    add_library(pffft::pffft UNKNOWN IMPORTED)
    set_target_properties(pffft::pffft PROPERTIES IMPORTED_LOCATION "${pffft_LIBRARY}")
    set_property(TARGET pffft::pffft PROPERTY INTERFACE_INCLUDE_DIRECTORIES "${pffft_INCLUDE_DIR}")
  else()
    # The transform is most of the pipeline's work: at -O3 in every build type, debug and sanitizers included.
    add_library(tavrin_pffft STATIC "${pffft_SOURCE}")
    target_include_directories(tavrin_pffft SYSTEM INTERFACE "${pffft_INCLUDE_DIR}")
    target_compile_options(tavrin_pffft PRIVATE -O3 -w)
    add_library(pffft::pffft ALIAS tavrin_pffft)
  endif()
endif()
