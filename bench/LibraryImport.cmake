if(TARGET LibraryImport)
  # The benchmark writes its archives with zlib's deflate.
  find_package(ZLIB REQUIRED)
  marlune_bench(LibraryImportBench SOURCES ${CMAKE_CURRENT_LIST_DIR}/LibraryImportBench.cpp
                LIBS Marlune::LibraryImport ZLIB::ZLIB)
endif()
