if(TARGET ClipboardKit)
  marlune_bench(ClipboardKitBench SOURCES ${CMAKE_CURRENT_LIST_DIR}/ClipboardKitBench.cpp
                LIBS Marlune::ClipboardKit)
endif()
