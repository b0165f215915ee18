if(TARGET MarluneCLIProtocol)
  # Instrument the library itself so that libFuzzer is guided by coverage of the frame and
  # request decoders, not just of the entry point.
  target_compile_options(MarluneCLIProtocol PRIVATE -fsanitize=fuzzer-no-link,address,undefined)
  marlune_fuzzer(MarluneCLIProtocolFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/MarluneCLIProtocolFuzz.cpp
                 LIBS Marlune::CLIProtocol)
endif()

if(TARGET MarluneCLIProtocol)
  marlune_fuzzer(CLIJSONStreamFuzz SOURCES ${CMAKE_CURRENT_LIST_DIR}/CLIJSONStreamFuzz.cpp
                 LIBS Marlune::CLIProtocol)
endif()
