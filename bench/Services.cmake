marlune_bench(ServicesBench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ServicesBench.cpp
  LIBS Marlune::App
)
