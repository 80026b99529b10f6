# Compile options of all targets, and the two kinds of library target.
add_compile_options(-Wall -Wextra -Wpointer-arith)
if(ZARN_WERROR)
  add_compile_options(-Werror)
endif()
# All calls are resolved at load. A first call that is resolved on its way saves the vector registers on the stack, with
# what a copy of a secret has left in them.
add_link_options(-Wl,-z,relro,-z,now)
if(ZARN_SANITIZE)
  add_compile_options(-fsanitize=${ZARN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZARN_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)  # instrumented code of the standard library sets it off
  endif()
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_options(-O1)
endif()

# Exported functions call each other directly, and other libraries' without a stub.
set(ZARN_LIBRARY_OPTIONS -fno-semantic-interposition -fno-plt $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)

# A folder of the two libraries: hidden symbols, linked into each library that needs it.
function(zarn_layer name)
  add_library(${name} OBJECT ${ARGN})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_options(${name} PRIVATE ${ZARN_LIBRARY_OPTIONS} -fvisibility=hidden)
endfunction()

function(zarn_library name)
  target_compile_options(${name} PRIVATE ${ZARN_LIBRARY_OPTIONS} -fvisibility=hidden)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(NOT ZARN_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
