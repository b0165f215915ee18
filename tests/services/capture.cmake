marlune_test(ClipboardCaptureServiceTests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ClipboardCaptureServiceTests.cpp
  LIBS Marlune::App Marlune::ClipboardKit
)
