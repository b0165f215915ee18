marlune_bench(PlatformBench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/PlatformBench.cpp
  LIBS Marlune::Platform
)
