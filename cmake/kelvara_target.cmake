# Defaults of every target of this project, set in one place.
#
#   kelvara_target_defaults(TARGET)
#
# C++20 for sources (public headers stay C++17), hidden visibility, private warnings (with Clang's
# thread-safety analysis), and the sanitizers chosen by KELVARA_SANITIZE, so that library, simulation
# and tests are always instrumented together.
function(kelvara_target_defaults target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wformat=2
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  if(KELVARA_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(KELVARA_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KELVARA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KELVARA_SANITIZE})
  endif()
endfunction()
