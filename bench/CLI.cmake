# Whole-process figures for the command line; needs both binaries.
if(TARGET marlune AND TARGET marlune-app)
  add_executable(CLIBench ${CMAKE_CURRENT_LIST_DIR}/CLIBench.cpp)
  target_link_libraries(CLIBench PRIVATE Marlune::CLIProtocol Marlune::BuildFlags)
  add_dependencies(CLIBench marlune marlune-app)
endif()
