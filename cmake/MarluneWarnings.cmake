# Warning and sanitizer flags shared by every target of the project.
add_library(marlune_build_flags INTERFACE)
add_library(Marlune::BuildFlags ALIAS marlune_build_flags)

target_compile_options(marlune_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wimplicit-fallthrough -Wmissing-declarations -Wformat=2)
# GCC 12 reports a false -Wrestrict overlap for `"text" + std::string&&` once it inlines at -O3
# (fixed in GCC 13), so Release builds would warn on correct code.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(marlune_build_flags INTERFACE -Wno-restrict)
endif()
if(MARLUNE_WERROR)
  target_compile_options(marlune_build_flags INTERFACE -Werror)
endif()
if(MARLUNE_SANITIZE)
  target_compile_options(marlune_build_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(marlune_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# marlune_module(NAME SOURCES ... LIBS ...): one library per module folder, with the
# Marlune::<Name> alias and the repository root as its include root.
function(marlune_module name)
  cmake_parse_arguments(ARG "" "ALIAS" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  if(ARG_ALIAS)
    add_library(Marlune::${ARG_ALIAS} ALIAS ${name})
  else()
    add_library(Marlune::${name} ALIAS ${name})
  endif()
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LIBS} PRIVATE Marlune::BuildFlags)
endfunction()
