if(TARGET LibraryImport)
  # Instrument the readers themselves so that coverage of their branches guides libFuzzer.
  target_compile_options(LibraryImport PRIVATE -fsanitize=fuzzer-no-link,address,undefined)
  marlune_fuzzer(LibraryImportZipFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportZipFuzz.cpp
                 LIBS Marlune::LibraryImport)
  marlune_fuzzer(LibraryImportCsvFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportCsvFuzz.cpp
                 LIBS Marlune::LibraryImport)
endif()
