# Installation as a desktop program (cmake --install build --prefix P) and the Debian package
# (cpack -G DEB in the build folder).
#
#   P/bin/beamcrafter
#   P/lib/beamcrafter/           the BLE plug-ins, found by the same bare name as in the build folder
#   P/share/beamcrafter/         the read-only tables of data/
#   P/share/applications/, P/share/metainfo/, P/share/icons/hicolor/   the desktop's entries
#
# The program finds its plug-in and data folders relative to its own, so the tree can be moved.
# Included before the targets exist; the rules are added once the whole tree has been read.

if(BRIVON_FUZZ)
    return()
endif()

include(GNUInstallDirs)
# No shared library of our own: the installed binaries need no run path (Qt's project set-up adds one).
set(CMAKE_INSTALL_RPATH "")

set(BRIVON_APP_ID "com.brivon.beamcrafter")
set(BRIVON_INSTALL_PLUGINDIR "${CMAKE_INSTALL_LIBDIR}/beamcrafter")
set(BRIVON_INSTALL_DATADIR "${CMAKE_INSTALL_DATADIR}/beamcrafter")
file(RELATIVE_PATH BRIVON_INSTALL_PLUGIN_RELDIR "${CMAKE_INSTALL_FULL_BINDIR}"
    "${CMAKE_INSTALL_FULL_LIBDIR}/beamcrafter")
file(RELATIVE_PATH BRIVON_INSTALL_DATA_RELDIR "${CMAKE_INSTALL_FULL_BINDIR}"
    "${CMAKE_INSTALL_FULL_DATADIR}/beamcrafter")

function(brivon_install_rules)
    # Only the two files that look for these folders (a definition on every target would rebuild all).
    set_property(SOURCE "${CMAKE_SOURCE_DIR}/app/appdatapaths.cpp" TARGET_DIRECTORY beamcrafter
        APPEND PROPERTY COMPILE_DEFINITIONS
        "BRIVON_INSTALL_PLUGIN_RELDIR=\"${BRIVON_INSTALL_PLUGIN_RELDIR}\""
        "BRIVON_INSTALL_DATA_RELDIR=\"${BRIVON_INSTALL_DATA_RELDIR}\"")
    set_property(SOURCE "${CMAKE_SOURCE_DIR}/plugins/ble-bluez/blebluezplugin.cpp" TARGET_DIRECTORY BrivonQXBleDLL
        APPEND PROPERTY COMPILE_DEFINITIONS "BRIVON_INSTALL_DATA_RELDIR=\"${BRIVON_INSTALL_DATA_RELDIR}\"")

    install(TARGETS beamcrafter RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    # Not the fakes and control tools: only the plug-ins, the simulated lights among them, which
    # are of use to anyone without lights.
    install(TARGETS BrivonQXBleDLL BrivonBleSim LIBRARY DESTINATION "${BRIVON_INSTALL_PLUGINDIR}")
    install(FILES "${CMAKE_SOURCE_DIR}/data/effect.json" "${CMAKE_SOURCE_DIR}/data/ble-profiles.json"
        DESTINATION "${BRIVON_INSTALL_DATADIR}")

    # The desktop's view of the program: entry, metainfo and the icon at the theme's sizes.
    set(icon_dir "${CMAKE_BINARY_DIR}/generated/desktop")
    set(logo "${CMAKE_SOURCE_DIR}/resource/svg/logo-app.svg")
    add_custom_command(
        OUTPUT "${icon_dir}/256.png" "${icon_dir}/48.png"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${icon_dir}"
        COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
                $<TARGET_FILE:brivon_icongen> "${logo}" "${icon_dir}/unused.ico"
                "${icon_dir}/256.png" 48 "${icon_dir}/48.png"
        DEPENDS brivon_icongen "${logo}"
        COMMENT "Rendering the desktop icons")
    add_custom_target(brivon_desktop_icons ALL DEPENDS "${icon_dir}/256.png" "${icon_dir}/48.png")

    set(hicolor "${CMAKE_INSTALL_DATADIR}/icons/hicolor")
    install(FILES "${logo}" DESTINATION "${hicolor}/scalable/apps" RENAME "${BRIVON_APP_ID}.svg")
    install(FILES "${icon_dir}/48.png" DESTINATION "${hicolor}/48x48/apps" RENAME "${BRIVON_APP_ID}.png")
    install(FILES "${icon_dir}/256.png" DESTINATION "${hicolor}/256x256/apps" RENAME "${BRIVON_APP_ID}.png")
    install(FILES "${CMAKE_SOURCE_DIR}/dist/linux/${BRIVON_APP_ID}.desktop"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
    # The build's date (SOURCE_DATE_EPOCH when set, for reproducible packages).
    string(TIMESTAMP BRIVON_RELEASE_DATE "%Y-%m-%d" UTC)
    configure_file("${CMAKE_SOURCE_DIR}/dist/linux/${BRIVON_APP_ID}.metainfo.xml.in"
        "${CMAKE_BINARY_DIR}/generated/desktop/${BRIVON_APP_ID}.metainfo.xml" @ONLY)
    install(FILES "${CMAKE_BINARY_DIR}/generated/desktop/${BRIVON_APP_ID}.metainfo.xml"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL brivon_install_rules)

# ---- Debian package ----------------------------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME beamcrafter)
set(CPACK_PACKAGE_VENDOR "Brivon")
set(CPACK_PACKAGE_CONTACT "Brivon Lumen developers <lumen@brivon.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Controller for Bluetooth LE photo and video lights and Philips Hue lamps")
set(CPACK_PACKAGE_DESCRIPTION
    "Brivon Lumen finds, connects and drives photo and video lights over Bluetooth LE and Philips Hue \
lamps through a Hue bridge, from one small window with a card per light and per group. Control-deck \
plug-ins drive the same lights through a WebSocket server on the loopback address. A plug-in with \
simulated lights is included for trying the program without lights.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Lights are reached through BlueZ; without it the program still drives Hue lamps.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "bluez")
include(CPack)
