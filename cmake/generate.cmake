# Runs the schema compiler for a library. The names of its files don't depend on what the schema holds.
set(ZARN_GENERATED ${PROJECT_BINARY_DIR}/generated)
set(ZARN_SIBLINGS qep_comm rudd_common zarn_enum_types zarn_types zarn_tag_common zarn_config_db_const_defs)
file(GLOB ZARN_SCHEMA CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/schema/*.zs)
file(GLOB ZARN_PUBLISHED CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/schema/published/*.tsv)
set(ZARN_STAMP "" CACHE STRING "What the build stamp of the libraries tells: a list of NAME=VALUE (docs/formats/manifest.md)")
set(stamp_options)
foreach(one IN LISTS ZARN_STAMP)
  list(APPEND stamp_options --stamp "${one}")
endforeach()

# For each module MODULE_SOURCES; LIBRARY_SECTIONS is what the built file says of itself.
function(zarn_generate library)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "MODULES;OPTIONS")
  set(sections ${ZARN_GENERATED}/src/${library}_sections.cc)
  set(stamp ${ZARN_GENERATED}/${library}.stamp)
  set(all ${sections})
  set(module_options)
  foreach(module IN LISTS arg_MODULES)
    set(sources)
    foreach(part schema module lifecycle scalars accessors_0 accessors_1 accessors_2 accessors_3 serial_0 serial_1 tables_0
                 tables_1 timers)
      list(APPEND sources ${ZARN_GENERATED}/src/${module}_${part}.cc)
    endforeach()
    list(APPEND all ${sources} ${ZARN_GENERATED}/src/${module}_schema.h ${ZARN_GENERATED}/include/${module}/${module}.h
         ${ZARN_GENERATED}/share/${module}.xsd)
    list(APPEND module_options --module ${module})
    set_source_files_properties(${sources} PROPERTIES GENERATED TRUE)
    set(${module}_SOURCES ${sources} ${stamp} PARENT_SCOPE)
  endforeach()
  add_custom_command(
    OUTPUT ${stamp}
    BYPRODUCTS ${all}
    COMMAND zarnc --out ${ZARN_GENERATED} --library ${library} ${module_options} ${arg_OPTIONS} ${stamp_options}
            --published ${PROJECT_SOURCE_DIR}/schema/published ${ZARN_SCHEMA}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS zarnc ${ZARN_SCHEMA} ${ZARN_PUBLISHED}
    COMMENT "Schema of ${library}"
    VERBATIM)
  add_custom_target(generate_${library} DEPENDS ${stamp})
  set_source_files_properties(${sections} PROPERTIES GENERATED TRUE)
  set(${library}_SECTIONS ${sections} PARENT_SCOPE)
endfunction()
