# The Debian package of the driver, made by CPack from the install rules
# (cmake/TalvoInstall.cmake): scripts/package runs it.
#   talvo-printer-driver_<project version>_<Debian architecture>.deb

find_program(TALVO_DPKG dpkg)
if(TALVO_DPKG)
    execute_process(COMMAND ${TALVO_DPKG} --print-architecture
        OUTPUT_VARIABLE TALVO_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
else()
    set(TALVO_DEB_ARCH amd64)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Talvo")
set(CPACK_PACKAGE_CONTACT "Talvo <support@talvo.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Talvo printer driver and printer setup")
# A Debian package installs under /usr, whatever prefix the build tree has.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The programs are built without debugging information; stripping also drops
# the symbol tables, as Debian wants.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME "${PROJECT_NAME}_${PROJECT_VERSION}_${TALVO_DEB_ARCH}.deb")
set(CPACK_DEBIAN_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TALVO_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Talvo <support@talvo.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://talvo.example/")
# The synopsis is the summary above; CPack indents these lines and turns the
# empty ones into paragraph breaks.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "The PPD files of Talvo's printer models, and the printer setup that
finds the printers the user can reach and creates their CUPS print queues.

Printers are found by Talvo's broadcast discovery, by the walkup exchange
started from a printer's front panel, by DNS-SD and the CUPS usb backend,
or at an address the user types. Network printers are identified over
SNMP, and the model's PPD is set up with the options installed in the
printer.

The package holds the wizard talvo-add-print-queue and the command-line
tool talvo-printers, which drives the same engine for administrators and
scripts.")

# The libraries the programs link come from dpkg-shlibdeps, with the versions
# they need (the X11 platform plug-in is part of libqt6gui6); the list below
# names what no linker sees: the Qt SVG image and icon plug-ins (the icons
# are SVG), Qt's own translations (its buttons in the user's language), the snmpget fallback, lpadmin and lpstat, the CUPS backends (cupsd refuses lpd://
# device URIs without the lpd backend of the cups package), ping for the
# manual probe, and gzip for the PPDs (essential, so with a version).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6svg6, qt6-translations-l10n, snmp, cups-client, cups, iputils-ping, gzip (>= 1.12)")
# md5sums and the other control files 0644, as dpkg itself makes them.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_SOURCE_GENERATOR "")
include(CPack)
