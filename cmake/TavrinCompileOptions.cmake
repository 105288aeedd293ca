# tavrin_compile_options(TARGET): warnings, sanitizers and reproducible file names for one of our own targets.
function(tavrin_compile_options target)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
      "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
  endif()
  if(TAVRIN_WARNINGS_AS_ERRORS)
    set_property(TARGET ${target} PROPERTY COMPILE_WARNING_AS_ERROR ON)
  endif()
  if(TAVRIN_SANITIZE)
    target_compile_options(${target} PRIVATE "-fsanitize=${TAVRIN_SANITIZE}" -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE "-fsanitize=${TAVRIN_SANITIZE}")
  endif()
endfunction()
