# Documentation, shell completion and the Debian package (cpack -G DEB).
include(GNUInstallDirs)

find_program(GZIP gzip REQUIRED)
set(DOC_BUILD_DIR ${CMAKE_BINARY_DIR}/doc)
add_custom_command(
  OUTPUT ${DOC_BUILD_DIR}/schscan.1.gz ${DOC_BUILD_DIR}/schscand.8.gz ${DOC_BUILD_DIR}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${DOC_BUILD_DIR}
  COMMAND ${GZIP} -9n -c ${CMAKE_SOURCE_DIR}/doc/schscan.1 > ${DOC_BUILD_DIR}/schscan.1.gz
  COMMAND ${GZIP} -9n -c ${CMAKE_SOURCE_DIR}/doc/schscand.8 > ${DOC_BUILD_DIR}/schscand.8.gz
  COMMAND ${GZIP} -9n -c ${CMAKE_SOURCE_DIR}/packaging/changelog > ${DOC_BUILD_DIR}/changelog.gz
  DEPENDS ${CMAKE_SOURCE_DIR}/doc/schscan.1 ${CMAKE_SOURCE_DIR}/doc/schscand.8
          ${CMAKE_SOURCE_DIR}/packaging/changelog)
add_custom_target(docs ALL DEPENDS ${DOC_BUILD_DIR}/schscan.1.gz ${DOC_BUILD_DIR}/schscand.8.gz
                                   ${DOC_BUILD_DIR}/changelog.gz)

install(FILES ${DOC_BUILD_DIR}/schscan.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${DOC_BUILD_DIR}/schscand.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES doc/schscan.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME schscan)
install(FILES packaging/copyright ${DOC_BUILD_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME schscan)

# The service's systemd unit, made at install time, when the real prefix is
# known: ExecStart names PREFIX/sbin/schscand (service/CMakeLists.txt installs
# it to sbin). With prefix /usr, the Debian package's, the unit goes to
# /lib/systemd/system, where Debian 12 packages must keep units; otherwise to
# PREFIX/lib/systemd/system, which systemd reads for /usr/local.
install(CODE "
  if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    set(schscand_unit_dir /lib/systemd/system)
  else()
    set(schscand_unit_dir \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")
  endif()
  set(SCHSCAND_PATH \"\${CMAKE_INSTALL_PREFIX}/sbin/schscand\")
  configure_file(\"${CMAKE_SOURCE_DIR}/packaging/schscand.service.in\"
                 \"${CMAKE_BINARY_DIR}/packaging/schscand.service\" @ONLY)
  file(INSTALL \"${CMAKE_BINARY_DIR}/packaging/schscand.service\"
       DESTINATION \"\${schscand_unit_dir}\"
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
")

foreach(script postinst prerm postrm)
  configure_file(packaging/${script} ${CMAKE_BINARY_DIR}/packaging/${script} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                  WORLD_READ WORLD_EXECUTE)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME schscan)
set(CPACK_PACKAGE_VENDOR Korvane)
set(CPACK_PACKAGE_CONTACT "schscan developers <dev@schscan.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "scheduled anti-virus scans, their service and reports")
# The pager more(1) comes with util-linux, which is essential.
set(CPACK_PACKAGE_DESCRIPTION "schscan is the console tool with which the users of the Korvane
anti-virus product add, view, modify and delete their scheduled scans, and
view and delete the reports those scans leave behind. The scan service
schscand runs each scan at its times, as its owner, on the ClamAV engine.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# An explicit list rather than dpkg-shlibdeps, which would have to be shown the
# product directory for the tool's own tskvault.so. libclamav's package is
# named after the soname of the library the service links (libclamav12 on
# Debian 12 today; ClamAV's stable updates have moved it before).
get_filename_component(clamav_library "${pkgcfg_lib_CLAMAV_clamav}" REALPATH)
if(NOT clamav_library MATCHES "/libclamav\\.so\\.([0-9]+)")
  message(FATAL_ERROR "cannot tell the soname of ${pkgcfg_lib_CLAMAV_clamav}")
endif()
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libc6 (>= 2.34), libgcc-s1, libstdc++6 (>= 12), libsqlite3-0 (>= 3.35), \
libclamav${CMAKE_MATCH_1}, libdate-tz3, libsystemd0, locales, passwd")
# The signature updater, which keeps the service's default database,
# /var/lib/clamav, up to date.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "clamav-freshclam")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/postinst
    ${CMAKE_BINARY_DIR}/packaging/prerm ${CMAKE_BINARY_DIR}/packaging/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
