marlune_bench(MarluneCoreBench
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/ClipStoreBench.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ClipCryptoBench.cpp
  LIBS Marlune::Core
)
