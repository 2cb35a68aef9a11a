# Compiler settings of everything this project compiles itself. Libraries from outside keep their own.
add_library(vpr_options INTERFACE)
target_compile_features(vpr_options INTERFACE cxx_std_20)
target_include_directories(vpr_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)

if(MSVC)
  target_compile_definitions(vpr_options INTERFACE _CRT_SECURE_NO_WARNINGS)
  target_compile_options(vpr_options INTERFACE /W4 /WX /permissive- /utf-8 /guard:cf /sdl)
  target_link_options(vpr_options INTERFACE /guard:cf)
else()
  target_compile_options(vpr_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2
    -Wdouble-promotion -Werror -fstack-protector-strong)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(vpr_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wuseless-cast -Wlogical-op -Wduplicated-cond>)
  endif()
endif()

if(WIN32)
  target_compile_definitions(vpr_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00 WINVER=0x0A00)
endif()

if(MINGW)
  target_compile_options(vpr_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  target_compile_definitions(vpr_options INTERFACE _GLIBCXX_ASSERTIONS $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  # One self-contained file: no run-time library beside it, no time stamp inside it.
  target_link_options(vpr_options INTERFACE
    -static -fstack-protector-strong
    -Wl,--no-insert-timestamp,--dynamicbase,--nxcompat,--high-entropy-va,--gc-sections)
  target_compile_options(vpr_options INTERFACE -ffunction-sections -fdata-sections)
endif()

# Programs that begin in wmain or wWinMain say so when they are linked; those that begin in main link only vpr_options.
add_library(vpr_wide_entry INTERFACE)
if(MINGW)
  target_link_options(vpr_wide_entry INTERFACE -municode)
endif()

if(VPR_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
