# Compiles each public header alone, as a user's program with the DLL includes it, and each source that MSVC would compile, as a
# part of the DLL. Clang uses its mode for MSVC: MSVC's extensions, sizes of types and rules for exports. The standard library is
# that of MinGW, because MSVC's is not free. The headers of the system come first. After them no macro says that the compiler is
# GCC or Clang, and what only these two know is an error. Run with CLANG, FOLDERS, MinGW's include folders, ROOT and WORK.
cmake_minimum_required(VERSION 3.22)

# Clang says that it is GCC too, for MinGW's headers. The macro of its name for MSVC stays (_MSVC_LANG).
set(options --target=x86_64-pc-windows-msvc -fms-compatibility -fms-extensions -std=c++20 -Wall -Wextra -Wpedantic -Werror
    -fgnuc-version=12.2.0 -U_MSC_VER -D__STRICT_ANSI__ -D__MINGW32__ -D__MINGW64__ -D__MSVCRT__ -D__declspec=__declspec
    -nostdinc++ -nostdlibinc -I ${ROOT}/include -I ${ROOT}/src)
foreach(folder IN LISTS FOLDERS)
  if(NOT folder MATCHES "/lib/gcc/[^+]*$")  # those of GCC's own headers
    list(APPEND options -isystem ${folder})
  endif()
endforeach()

file(GLOB headers ${ROOT}/include/support/*.h)
file(GLOB_RECURSE sources ${ROOT}/src/*.h ${ROOT}/src/*.cpp)
list(FILTER sources EXCLUDE REGEX "/platform/(linux|emulated|services)/")
set(system_headers "")
foreach(file IN LISTS headers sources)
  file(STRINGS ${file} lines REGEX "^#include <[a-z0-9_]+(\\.h)?>")
  list(TRANSFORM lines REPLACE ">.*" ">")
  list(APPEND system_headers ${lines})
endforeach()
list(REMOVE_DUPLICATES system_headers)
list(SORT system_headers COMPARE STRING ORDER DESCENDING)  # windows.h before the headers that need it
list(FILTER system_headers EXCLUDE REGEX "cpuid|cxxabi|emmintrin")
list(JOIN system_headers "\n" prelude)
file(WRITE ${WORK}/prelude.h "${prelude}\n#undef __GNUC__\n#undef __clang__\n#undef __x86_64__\n#undef __SSE2__\n#define _MSC_VER 1930\n#define _M_X64 100\n")
execute_process(COMMAND ${CLANG} ${options} -x c++-header ${WORK}/prelude.h -o ${WORK}/prelude.pch COMMAND_ERROR_IS_FATAL ANY)
list(APPEND options -include-pch ${WORK}/prelude.pch)

foreach(header IN LISTS headers)
  execute_process(COMMAND ${CLANG} ${options} -fsyntax-only -x c++ -include ${header} /dev/null COMMAND_ERROR_IS_FATAL ANY)
endforeach()
list(FILTER sources INCLUDE REGEX "\\.cpp$")
set(own_lines "/^# [0-9]/ { own = index($3, \"${ROOT}/\") == 2 } own")
foreach(source IN LISTS sources)
  execute_process(COMMAND ${CLANG} ${options} -D KEST_SUPPORT_BUILD -E ${source} COMMAND awk ${own_lines} OUTPUT_VARIABLE text
                  COMMAND_ERROR_IS_FATAL ANY)
  if(text MATCHES "(__builtin_|vector_size|__int128|__attribute__|__typeof|ssize_t|asm )[^\n]*")
    message(SEND_ERROR "${source}: MSVC does not know ${CMAKE_MATCH_0}")
  endif()
  execute_process(COMMAND ${CLANG} ${options} -D KEST_SUPPORT_BUILD -fsyntax-only ${source} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
