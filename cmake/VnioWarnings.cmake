# Warning and sanitizer settings shared by every target of the project.
add_library(vnio_warnings INTERFACE)
target_compile_options(vnio_warnings INTERFACE -Wall -Wextra -Wshadow $<$<BOOL:${VNIO_WERROR}>:-Werror>)
if(VNIO_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
# Fuzzing instruments every layer for coverage, not just the targets: otherwise libFuzzer
# sees only the entry point and mutates blind.
if(VNIO_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# Adds one base layer of the project: sources from src/, public headers from include/.
# The layers are object libraries; the shared library vnio carries their code, so a
# process holds exactly one copy of every registry and table.
function(vnio_add_component name)
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/src/*.cpp)
  add_library(${name} OBJECT ${_src})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:vnio_warnings>)
endfunction()
