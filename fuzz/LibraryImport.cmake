if(TARGET LibraryImport)
  # Instrument the readers themselves so that coverage of their branches guides libFuzzer.
  target_compile_options(LibraryImport PRIVATE -fsanitize=fuzzer-no-link,address,undefined)
  marlune_fuzzer(LibraryImportZipFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportZipFuzz.cpp
                 LIBS Marlune::LibraryImport)
  marlune_fuzzer(LibraryImportCsvFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportCsvFuzz.cpp
                 LIBS Marlune::LibraryImport)
  # One target per converter's entry point; seeds: tests/LibraryImport/data.
  set(formats TextExpanderCsv TextExpanderArchive Raycast Alfred Espanso MarluneDocument)
  set(index 0)
  foreach(format IN LISTS formats)
    marlune_fuzzer(LibraryImport${format}Fuzz
                   SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportConverterFuzz.cpp
                   LIBS Marlune::LibraryImport)
    target_compile_definitions(LibraryImport${format}Fuzz PRIVATE MARLUNE_FUZZ_FORMAT=${index})
    math(EXPR index "${index} + 1")
  endforeach()
endif()
