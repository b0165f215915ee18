marlune_fuzzer(ClipCryptoFuzzer SOURCES ${CMAKE_CURRENT_LIST_DIR}/ClipCryptoFuzzer.cpp LIBS Marlune::Core)
