# What every target of ours is compiled with. Nothing here is exported to users of the library.
include_guard(GLOBAL)
include(CMakePushCheckState)

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_THREAD_PREFER_PTHREAD ON)
find_package(Threads REQUIRED)

find_program(KEST_CCACHE ccache)
if(KEST_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${KEST_CCACHE}")
endif()

# Standard, warnings and sanitizers for one of our own targets.
function(kest_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(KEST_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(KEST_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KEST_SANITIZE} -fno-omit-frame-pointer -g)
    target_link_options(${target} PRIVATE -fsanitize=${KEST_SANITIZE})
    if(KEST_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
  endif()
endfunction()
