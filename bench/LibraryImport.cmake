if(TARGET LibraryImport)
  # The benchmark writes its archives with zlib's deflate.
  find_package(ZLIB REQUIRED)
  marlune_bench(LibraryImportBench SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportBench.cpp
                LIBS Marlune::LibraryImport ZLIB::ZLIB)
endif()
if(TARGET LibraryImport AND TARGET Marlune)
  # Whole imports and exports against a real library file.
  marlune_bench(LibraryPortabilityBench
                SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryPortabilityBench.cpp
                LIBS Marlune::LibraryImport Marlune::App)
endif()
