# Compiles each public header alone, as a user's program with the DLL includes it, and the sources that instantiate exported class
# templates, as parts of the DLL. Clang uses its mode for MSVC: MSVC's extensions, sizes of types and rules for exports. The
# standard library is that of MinGW, because MSVC's is not free. Run with CLANG, FOLDERS, MinGW's include folders, and ROOT.
cmake_minimum_required(VERSION 3.22)

# Clang says that it is GCC too, for MinGW's headers. The macro of its name for MSVC stays (_MSVC_LANG).
set(options --target=x86_64-pc-windows-msvc -fms-compatibility -fms-extensions -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror
    -fgnuc-version=12.2.0 -U_MSC_VER -D__STRICT_ANSI__ -D__MINGW32__ -D__MINGW64__ -D__MSVCRT__ -D__declspec=__declspec
    -nostdinc++ -nostdlibinc -I ${ROOT}/include -I ${ROOT}/src)
foreach(folder IN LISTS FOLDERS)
  if(NOT folder MATCHES "/lib/gcc/[^+]*$")  # those of GCC's own headers
    list(APPEND options -isystem ${folder})
  endif()
endforeach()

file(GLOB headers ${ROOT}/include/support/*.h)
foreach(header IN LISTS headers)
  execute_process(COMMAND ${CLANG} ${options} -x c++ -include ${header} /dev/null COMMAND_ERROR_IS_FATAL ANY)
endforeach()
foreach(source sync/lock_factory text/properties/properties values/pattern/regular_expressions)
  execute_process(COMMAND ${CLANG} ${options} -D KEST_SUPPORT_BUILD ${ROOT}/src/${source}.cpp COMMAND_ERROR_IS_FATAL ANY)
endforeach()
