# What `cmake --install` puts under the prefix, and the package files that let other projects
# build against it (find_package(L3Decap CONFIG) or pkg-config l3decap):
#
#   include/l3decap/{Asic,Fwk,Vosk,TalvikL3Common,TalvikL3Unicast,AsicSwTable,TalvikL3Decap,sim}/
#   <libdir>/libl3decap.so, libl3decap_sim.so
#   <libdir>/l3decap/plugins/   the simulated chip's plug-in (the library's default search path)
#   <libdir>/cmake/L3Decap/     L3DecapConfig.cmake, its version file, the exported targets
#   <libdir>/pkgconfig/l3decap.pc
#   bin/l3decap, bin/rbtrace-print
#
# Every installed file finds the others relative to itself ($ORIGIN run paths, a package config
# and a .pc that compute the prefix from their own place), so a tree installed with
# `cmake --install <build> --prefix <dir>` works wherever <dir> is.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(L3DECAP_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/l3decap)
set(L3DECAP_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/l3decap/plugins)
set(L3DECAP_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/L3Decap)

# Run paths: from a program or a plug-in to the libraries, relative to the file itself.
function(l3decap_origin_rpath target from_dir)
  file(RELATIVE_PATH to_libdir /${from_dir} /${CMAKE_INSTALL_LIBDIR})
  string(REGEX REPLACE "/$" "" to_libdir "${to_libdir}")
  if(to_libdir STREQUAL "")
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN")
  else()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN/${to_libdir}")
  endif()
endfunction()

# --- headers, keeping the paths the sources include them by ---
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ ${PROJECT_SOURCE_DIR}/AsicSwTable
                  ${PROJECT_SOURCE_DIR}/TalvikL3Decap
        DESTINATION ${L3DECAP_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/sim DESTINATION ${L3DECAP_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "plugin" EXCLUDE PATTERN "fake" EXCLUDE)

# --- libraries ---
# The headers need C++20; say so to the consumers of the exported targets.
target_compile_features(l3decap INTERFACE cxx_std_20)
set_target_properties(l3decap l3decap_sim PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
l3decap_origin_rpath(l3decap_sim ${CMAKE_INSTALL_LIBDIR})
install(TARGETS l3decap l3decap_sim EXPORT L3DecapTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${L3DECAP_INSTALL_INCLUDEDIR})

# --- the simulated chip's plug-in, where the installed library looks by default ---
l3decap_origin_rpath(l3decap_sim_plugin ${L3DECAP_INSTALL_PLUGINDIR})
install(TARGETS l3decap_sim_plugin LIBRARY DESTINATION ${L3DECAP_INSTALL_PLUGINDIR})

# --- programs ---
set(l3decap_programs rbtrace-print)
if(TARGET l3decap_agent)
  list(APPEND l3decap_programs l3decap_agent)
endif()
foreach(program ${l3decap_programs})
  l3decap_origin_rpath(${program} ${CMAKE_INSTALL_BINDIR})
endforeach()
install(TARGETS ${l3decap_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Everything the install step copies, built without the tests (examples/check-install.sh).
add_custom_target(l3decap_installables)
add_dependencies(l3decap_installables l3decap l3decap_sim l3decap_sim_plugin ${l3decap_programs})

# --- CMake package: find_package(L3Decap CONFIG), targets L3Decap::l3decap, L3Decap::l3decap_sim ---
install(EXPORT L3DecapTargets NAMESPACE L3Decap:: DESTINATION ${L3DECAP_INSTALL_CMAKEDIR})
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/L3DecapConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/L3DecapConfig.cmake
  INSTALL_DESTINATION ${L3DECAP_INSTALL_CMAKEDIR}
  PATH_VARS L3DECAP_INSTALL_INCLUDEDIR L3DECAP_INSTALL_PLUGINDIR)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/L3DecapConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/L3DecapConfig.cmake
              ${PROJECT_BINARY_DIR}/package/L3DecapConfigVersion.cmake
        DESTINATION ${L3DECAP_INSTALL_CMAKEDIR})

# --- pkg-config: the prefix is found from the .pc file's own directory ---
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(L3DECAP_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(L3DECAP_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
endif()
set(L3DECAP_PC_LIBS_PRIVATE "")
foreach(lib ${CMAKE_DL_LIBS})
  string(APPEND L3DECAP_PC_LIBS_PRIVATE " -l${lib}")
endforeach()
string(STRIP "${L3DECAP_PC_LIBS_PRIVATE}" L3DECAP_PC_LIBS_PRIVATE)
configure_file(${CMAKE_CURRENT_LIST_DIR}/l3decap.pc.in ${PROJECT_BINARY_DIR}/package/l3decap.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/l3decap.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
