marlune_bench(ExpansionEngineBench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ExpansionEngineBench.cpp
  LIBS Marlune::ExpansionEngine
)
