# Whole-process figures for the command line; needs both binaries.
if(TARGET marlune AND TARGET marlune-app)
  add_executable(CLIBench ${CMAKE_CURRENT_LIST_DIR}/CLIBench.cpp)
  target_link_libraries(CLIBench PRIVATE Marlune::CLIProtocol Marlune::BuildFlags)
  target_include_directories(CLIBench PRIVATE ${PROJECT_SOURCE_DIR})
  add_dependencies(CLIBench marlune marlune-app)
endif()

# Whole-process figures for the clip commands on a history of 100,000 clips.
if(TARGET marlune AND TARGET marlune-app)
  add_executable(CLIClipBench ${CMAKE_CURRENT_LIST_DIR}/CLIClipBench.cpp)
  target_link_libraries(CLIClipBench PRIVATE Marlune::Core Marlune::BuildFlags)
  target_include_directories(CLIClipBench PRIVATE ${PROJECT_SOURCE_DIR})
  add_dependencies(CLIClipBench marlune marlune-app)
endif()
