# What `cmake --install` puts under the prefix: the library, its headers
# (hand-written and generated, in one tree under include/fabvxlan), the
# schemas and the generator for a platform's own entities, the tools, the
# docs, a CMake package (find_package(FabVxlan CONFIG) gives
# FabVxlan::fabvxlan and fabvxlan_generate()) and fabvxlan.pc.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(FABVXLAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/FabVxlan)
set(FABVXLAN_SHARE_DIR ${CMAKE_INSTALL_DATADIR}/fabvxlan)

install(TARGETS fabvxlan EXPORT FabVxlanTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/fabvxlan/ ${RXNGEN_OUT}/fabvxlan/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/fabvxlan FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/fabvxlan/ DESTINATION ${FABVXLAN_SHARE_DIR}/schemas/fabvxlan
        FILES_MATCHING PATTERN "*.rxn")
install(PROGRAMS ${FABVXLAN_RXNGEN} DESTINATION ${FABVXLAN_SHARE_DIR}/rxngen)

# The tools find the library beside them, wherever the prefix is.
set(tools fabvxlan-ringdump)
if(TARGET fabvxlan-sim)
  list(APPEND tools fabvxlan-sim)
endif()
set_target_properties(${tools} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS ${tools} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT FabVxlanTargets NAMESPACE FabVxlan:: DESTINATION ${FABVXLAN_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/FabVxlanConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/FabVxlanConfig.cmake
                              INSTALL_DESTINATION ${FABVXLAN_CMAKE_DIR}
                              PATH_VARS CMAKE_INSTALL_INCLUDEDIR FABVXLAN_SHARE_DIR)
# Before 1.0 a minor release may break the API: only the same minor matches.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FabVxlanConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/FabVxlanConfig.cmake ${PROJECT_BINARY_DIR}/FabVxlanConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/Rxngen.cmake
        DESTINATION ${FABVXLAN_CMAKE_DIR})

# The prefix from where the .pc file lies, so that the package may move.
file(RELATIVE_PATH FABVXLAN_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/fabvxlan.pc.in ${PROJECT_BINARY_DIR}/fabvxlan.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fabvxlan.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
