if(TARGET ClipboardKit)
  # Instrument the library itself, not just the entry point, so that libFuzzer is guided by
  # coverage of the detector and the classifier.
  target_compile_options(ClipboardKit PRIVATE -fsanitize=fuzzer-no-link,address,undefined)
  marlune_fuzzer(ClipboardKitFuzzer SOURCES ${CMAKE_CURRENT_LIST_DIR}/ClipboardKitFuzzer.cpp
                 LIBS Marlune::ClipboardKit)
endif()
