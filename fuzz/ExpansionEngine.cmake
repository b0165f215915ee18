marlune_fuzzer(ExpansionEngineFuzz
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ExpansionEngineFuzz.cpp
  LIBS Marlune::ExpansionEngine
)
