marlune_test(ExpansionServiceTests
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/ExpansionServiceTests.cpp
    ${CMAKE_CURRENT_LIST_DIR}/DoubleTapDetectorTests.cpp
  LIBS Marlune::App Marlune::Platform Marlune::ClipboardKit
)
