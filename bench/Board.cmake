# Whole-process listing of a 5,000-item Board section; needs both binaries.
if(TARGET marlune AND TARGET marlune-app)
  add_executable(BoardBench ${CMAKE_CURRENT_LIST_DIR}/BoardBench.cpp)
  target_link_libraries(BoardBench PRIVATE Marlune::CLIProtocol Marlune::BuildFlags)
  target_include_directories(BoardBench PRIVATE ${PROJECT_SOURCE_DIR})
  add_dependencies(BoardBench marlune marlune-app)
endif()
