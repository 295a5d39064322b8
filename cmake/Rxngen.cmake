# fabvxlan_generate(TARGET <target> SCHEMAS <files...> [ROOT <dir>])
#
# Runs the schema generator over a project's own schemas and adds the
# generated sources and their folder to <target>. A schema <ROOT>/x/Y.rxn is
# included as "x/Y.h" (ROOT defaults to the current source folder). The
# schemas of FabVxlan itself are known to it: a platform's entity may hold
# Fab::VXLAN and imported types once its schema includes their header.
#
# Where FabVxlan is: FABVXLAN_PYTHON and FABVXLAN_RXNGEN (the generator),
# FABVXLAN_SCHEMA_DIR (the root of its schemas) and FABVXLAN_HEADER_DIRS (the
# roots of its headers), set by this tree or by the installed package.
function(fabvxlan_generate)
  cmake_parse_arguments(ARG "" "TARGET;ROOT" "SCHEMAS" ${ARGN})
  if(NOT ARG_TARGET OR NOT ARG_SCHEMAS)
    message(FATAL_ERROR "fabvxlan_generate: TARGET and SCHEMAS are required")
  endif()
  if(NOT ARG_ROOT)
    set(ARG_ROOT ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${ARG_TARGET}_gen)
  file(GLOB_RECURSE imports ${FABVXLAN_SCHEMA_DIR}/fabvxlan/*.rxn)
  set(schemas)
  foreach(schema ${ARG_SCHEMAS})
    get_filename_component(schema ${schema} ABSOLUTE)
    list(APPEND schemas ${schema})
  endforeach()
  _fabvxlan_rxngen(sources ${ARG_ROOT} ${out} "${schemas}" "${imports}")
  target_sources(${ARG_TARGET} PRIVATE ${sources})
  target_include_directories(${ARG_TARGET} PUBLIC ${out})
endfunction()

# rxn_generate(<out-var> SCHEMAS <files...> [IMPORTS <files...>])
#
# This tree's own use: generates the schemas of the library and the tests
# into ${RXNGEN_OUT}, and sets <out-var> to the generated sources. IMPORTS are
# schemas whose names the given ones use but which another call generates.
function(rxn_generate out_var)
  cmake_parse_arguments(ARG "" "" "SCHEMAS;IMPORTS" ${ARGN})
  _fabvxlan_rxngen(outputs ${PROJECT_SOURCE_DIR} ${RXNGEN_OUT} "${ARG_SCHEMAS}" "${ARG_IMPORTS}")
  set(${out_var} ${outputs} PARENT_SCOPE)
endfunction()

function(_fabvxlan_rxngen out_var root out schemas imports)
  set(outputs)
  set(args)
  foreach(dir ${FABVXLAN_HEADER_DIRS})
    list(APPEND args --include-dir ${dir})
  endforeach()
  foreach(schema ${imports})
    list(APPEND args --import ${schema})
  endforeach()
  foreach(schema ${schemas})
    file(RELATIVE_PATH rel ${root} ${schema})
    string(REGEX REPLACE "\\.rxn$" "" stem ${rel})
    list(APPEND outputs ${out}/${stem}.h ${out}/${stem}.cpp)
  endforeach()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${FABVXLAN_PYTHON} ${FABVXLAN_RXNGEN} --root ${root} --out ${out} ${args} ${schemas}
    DEPENDS ${schemas} ${imports} ${FABVXLAN_RXNGEN}
    COMMENT "rxngen: generating from schemas"
    VERBATIM)
  set(${out_var} ${outputs} PARENT_SCOPE)
endfunction()
