# rxn_generate(<out-var> SCHEMAS <files...> [IMPORTS <files...>])
#
# Runs tools/rxngen over the schemas and sets <out-var> to the generated
# sources. Outputs land in ${CMAKE_BINARY_DIR}/gen at the schema's path, so a
# schema fabvxlan/state/X.rxn is included as "fabvxlan/state/X.h". IMPORTS
# are schemas whose names the given ones use but which another call generates.
set(RXNGEN_SCRIPT ${CMAKE_SOURCE_DIR}/tools/rxngen/rxngen.py)
set(RXNGEN_OUT ${CMAKE_BINARY_DIR}/gen)

function(rxn_generate out_var)
  cmake_parse_arguments(ARG "" "" "SCHEMAS;IMPORTS" ${ARGN})
  set(outputs)
  set(import_args)
  foreach(schema ${ARG_IMPORTS})
    list(APPEND import_args --import ${schema})
  endforeach()
  foreach(schema ${ARG_SCHEMAS})
    file(RELATIVE_PATH rel ${CMAKE_SOURCE_DIR} ${schema})
    string(REGEX REPLACE "\\.rxn$" "" stem ${rel})
    list(APPEND outputs ${RXNGEN_OUT}/${stem}.h ${RXNGEN_OUT}/${stem}.cpp)
  endforeach()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${Python3_EXECUTABLE} ${RXNGEN_SCRIPT} --root ${CMAKE_SOURCE_DIR} --out ${RXNGEN_OUT}
            ${import_args} ${ARG_SCHEMAS}
    DEPENDS ${ARG_SCHEMAS} ${ARG_IMPORTS} ${RXNGEN_SCRIPT}
    COMMENT "rxngen: generating from schemas"
    VERBATIM)
  set(${out_var} ${outputs} PARENT_SCOPE)
endfunction()
