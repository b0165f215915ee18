# Whole-process listing of a 5,000-item Board section; needs both binaries.
if(TARGET marlune AND TARGET marlune-app)
  add_executable(BoardBench ${CMAKE_CURRENT_LIST_DIR}/BoardBench.cpp)
  target_link_libraries(BoardBench PRIVATE Marlune::CLIProtocol Marlune::BuildFlags)
  target_include_directories(BoardBench PRIVATE ${PROJECT_SOURCE_DIR})
  add_dependencies(BoardBench marlune marlune-app)
endif()

# The store's share of a large listing: BoardStore::items and the archive pass before it.
marlune_bench(BoardStoreBench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/BoardStoreBench.cpp
  LIBS Marlune::Core
)
