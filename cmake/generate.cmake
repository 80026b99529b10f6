# Runs the schema compiler for a module. The names of its files don't depend on what the schema holds.
set(ZARN_GENERATED ${PROJECT_BINARY_DIR}/generated)
set(ZARN_SIBLINGS qep_comm rudd_common zarn_enum_types zarn_types zarn_tag_common zarn_config_db_const_defs)
file(GLOB ZARN_SCHEMA CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/schema/*.zs)
file(GLOB ZARN_PUBLISHED CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/schema/published/*.tsv)

function(zarn_generate module)
  set(sources)
  foreach(part schema module lifecycle scalars accessors_0 accessors_1 accessors_2 accessors_3 serial_0 serial_1 tables_0
               tables_1)
    list(APPEND sources ${ZARN_GENERATED}/src/${module}_${part}.cc)
  endforeach()
  set(stamp ${ZARN_GENERATED}/${module}.stamp)
  add_custom_command(
    OUTPUT ${stamp}
    BYPRODUCTS ${sources} ${ZARN_GENERATED}/src/${module}_schema.h ${ZARN_GENERATED}/include/${module}/${module}.h
               ${ZARN_GENERATED}/share/${module}.xsd
    COMMAND zarnc --out ${ZARN_GENERATED} --module ${module} --published ${PROJECT_SOURCE_DIR}/schema/published
            ${ZARN_SCHEMA}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS zarnc ${ZARN_SCHEMA} ${ZARN_PUBLISHED}
    COMMENT "Schema of ${module}"
    VERBATIM)
  add_custom_target(generate_${module} DEPENDS ${stamp})
  set_source_files_properties(${sources} PROPERTIES GENERATED TRUE)
  set(${module}_SOURCES ${sources} ${stamp} PARENT_SCOPE)
endfunction()
