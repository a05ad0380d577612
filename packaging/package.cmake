# The Debian package (cmake --build --preset release --target package): the
# program, its systemd unit, the configuration in /etc/orvane (conffiles)
# and the documentation. The maintainer scripts in debian/ make the system
# user and the state folder /var/lib/orvane.
set(ORVANE_VERSION 0.1.0)
set(ORVANE_PACKAGING_DIR ${PROJECT_SOURCE_DIR}/packaging)

install(TARGETS orvane RUNTIME DESTINATION bin)
install(FILES ${ORVANE_PACKAGING_DIR}/etc/ORVANE.ini ${ORVANE_PACKAGING_DIR}/etc/odbc.ini
              ${ORVANE_PACKAGING_DIR}/etc/menuinfo.csv
        DESTINATION /etc/orvane)
install(FILES ${ORVANE_PACKAGING_DIR}/orvane.service DESTINATION /lib/systemd/system)
install(FILES ${PROJECT_SOURCE_DIR}/docs/operations.md ${PROJECT_SOURCE_DIR}/docs/protocol.md
        DESTINATION share/doc/orvane)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VERSION ${ORVANE_VERSION})
set(CPACK_PACKAGE_CONTACT "orvane maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Organisation, user and mail-account administration server")
set(CPACK_PACKAGE_DESCRIPTION
    "Serves the administration pages' requests over HTTP on an ODBC database (SQLite or PostgreSQL).")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# The shared libraries (unixODBC, OpenSSL, prometheus-cpp, ...) from
# dpkg-shlibdeps (Boost.Beast and Asio are headers only: building needs
# libboost1.81-dev, running nothing); the ODBC driver of the default data source or of
# PostgreSQL; adduser for the system user.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, libsqliteodbc | odbc-postgresql")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libsqliteodbc, sqlite3")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "odbc-postgresql")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${ORVANE_PACKAGING_DIR}/debian/postinst ${ORVANE_PACKAGING_DIR}/debian/prerm
    ${ORVANE_PACKAGING_DIR}/debian/postrm ${ORVANE_PACKAGING_DIR}/debian/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
