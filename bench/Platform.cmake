marlune_bench(PlatformBench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/PlatformBench.cpp
  LIBS Marlune::Platform
)

# Whole-application figures on a real display: run through scripts/bench-desktop.sh.
if(TARGET marlune-app AND TARGET marlune AND TARGET TestField)
  add_executable(DesktopBench ${CMAKE_CURRENT_LIST_DIR}/DesktopBench.cpp)
  target_link_libraries(DesktopBench PRIVATE Marlune::App Marlune::Platform MarluneTestSupport
                        nlohmann_json::nlohmann_json Marlune::BuildFlags)
  target_include_directories(DesktopBench PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  add_dependencies(DesktopBench marlune-app marlune TestField)
endif()
