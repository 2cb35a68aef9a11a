# miniz reads package archives. A CMake package where there is one (vcpkg); on Debian its two files, put in place by
# tools/fetch-source.
find_package(miniz CONFIG QUIET)
if(NOT miniz_FOUND)
  if(NOT EXISTS ${VPR_MINIZ_DIR}/miniz.c)
    message(FATAL_ERROR "miniz is missing: run ./dev setup, or set VPR_MINIZ_DIR to a folder with miniz.c and miniz.h")
  endif()
  add_library(miniz STATIC ${VPR_MINIZ_DIR}/miniz.c)
  target_include_directories(miniz SYSTEM PUBLIC ${VPR_MINIZ_DIR})
  add_library(miniz::miniz ALIAS miniz)
endif()
