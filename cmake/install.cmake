# What `cmake --install` puts where. Templates and vendors go to the absolute paths at which the programs look for them, whatever the
# prefix is: stage with DESTDIR.
include(GNUInstallDirs)

install(TARGETS pavo_detection RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS pavo_cgi pavo_webd route_documents RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/pavo)
install(PROGRAMS scripts/make-web-config.sh DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/pavo)
install(FILES data/openapi.json DESTINATION ${CMAKE_INSTALL_DATADIR}/pavo)
install(TARGETS pavoctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NOT PAVO_OPEN_LIBRARY)
  install(TARGETS vswitchd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  install(TARGETS vswitchctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY data/profileTemplate DESTINATION /usr/local/appmgr/usr/share/pavo)
install(FILES ${PAVO_VENDOR_DB} DESTINATION /usr/local/appmgr/usr/share/pavo/oui)
# bash-completion loads the file that is named like the command.
install(FILES data/completion/pavoctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME pavoctl)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
# Services of a switch that runs systemd; the prefix is known only now.
install(CODE "
  set(sbindir \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR})
  set(libexecdir \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR})
  foreach(unit pavo_detection pavo_webd pavo_web)
    configure_file(${CMAKE_CURRENT_SOURCE_DIR}/data/systemd/\${unit}.service
                   ${CMAKE_CURRENT_BINARY_DIR}/systemd/\${unit}.service @ONLY)
    file(INSTALL ${CMAKE_CURRENT_BINARY_DIR}/systemd/\${unit}.service
         DESTINATION \${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
  endforeach()")
install(FILES data/systemd/pavo.sysusers DESTINATION lib/sysusers.d RENAME pavo.conf)
install(FILES data/systemd/pavo.tmpfiles DESTINATION lib/tmpfiles.d RENAME pavo.conf)
