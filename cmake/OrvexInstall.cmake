# What `cmake --install` puts under the prefix:
#   bin/orvex, bin/orvex-cli          the workbench and the headless runner
#   lib/orvex/libkv3.so               the engine, loaded by the programs from ../lib/orvex
#   share/orvex/{MI,progs,help.htm}   the bundled content a user's directory is seeded from
#   share/applications, share/icons, share/mime   the desktop's entry, icon and file types
# The programs need no RPATH of their own: the engine is loaded by path, everything else is
# a system library.

install(TARGETS orvex-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET orvex)
  install(TARGETS orvex RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(TARGETS kv3 LIBRARY DESTINATION ${ORVEX_INSTALL_ENGINE_DIR} NAMELINK_SKIP)

set(orvex_data ${PROJECT_SOURCE_DIR}/data)
install(DIRECTORY ${orvex_data}/MI ${orvex_data}/progs DESTINATION ${ORVEX_INSTALL_DATA_DIR})
install(FILES ${orvex_data}/help.htm ${orvex_data}/spin3_chevron.png DESTINATION ${ORVEX_INSTALL_DATA_DIR})

if(TARGET orvex)
  install(FILES ${orvex_data}/desktop/orvex.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${orvex_data}/desktop/orvex.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  install(FILES ${orvex_data}/desktop/orvex-mime.xml
          DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages RENAME orvex.xml)
endif()
