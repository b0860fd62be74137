# Everything under ":/resource/": artwork and style sheets from resource/, the Roboto fonts from the
# system's font package, the program's translation catalogues and Qt's own translations.
# All of it is compiled into brivoncore: the core installs the translators, the font and the window
# icon at start-up and its tests load the catalogues, and resources need nothing of Qt Widgets. The
# catalogues are refreshed from the sources of both libraries.

set(BRIVON_RES_DIR "${CMAKE_SOURCE_DIR}/resource")
set(BRIVON_GEN_RES_DIR "${CMAKE_BINARY_DIR}/generated/resource")

# -- artwork and style sheets committed as sources
file(GLOB BRIVON_ART_FILES CONFIGURE_DEPENDS
    "${BRIVON_RES_DIR}/svg/*.svg"
    "${BRIVON_RES_DIR}/png/*.png"
    "${BRIVON_RES_DIR}/qss/*.qss")
set(BRIVON_RESOURCE_FILES "")
foreach(art IN LISTS BRIVON_ART_FILES)
    file(RELATIVE_PATH alias "${BRIVON_RES_DIR}" "${art}")
    set_source_files_properties("${art}" PROPERTIES QT_RESOURCE_ALIAS "${alias}")
    list(APPEND BRIVON_RESOURCE_FILES "${art}")
endforeach()

# -- the application icon (.ico and .png) rendered from its SVG source at build time
add_executable(brivon_icongen "${CMAKE_SOURCE_DIR}/cmake/icongen.cpp")
target_link_libraries(brivon_icongen PRIVATE Qt6::Gui Qt6::Svg)
set_target_properties(brivon_icongen PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/buildtools")
set(BRIVON_LOGO_SVG "${BRIVON_RES_DIR}/svg/logo-app.svg")
add_custom_command(
    OUTPUT "${BRIVON_GEN_RES_DIR}/svg/logo-app.ico" "${BRIVON_GEN_RES_DIR}/svg/logo.png"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${BRIVON_GEN_RES_DIR}/svg"
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
            $<TARGET_FILE:brivon_icongen> "${BRIVON_LOGO_SVG}"
            "${BRIVON_GEN_RES_DIR}/svg/logo-app.ico" "${BRIVON_GEN_RES_DIR}/svg/logo.png"
    DEPENDS brivon_icongen "${BRIVON_LOGO_SVG}"
    COMMENT "Rendering the application icon")
set_source_files_properties("${BRIVON_GEN_RES_DIR}/svg/logo-app.ico" PROPERTIES QT_RESOURCE_ALIAS "svg/logo-app.ico")
set_source_files_properties("${BRIVON_GEN_RES_DIR}/svg/logo.png" PROPERTIES QT_RESOURCE_ALIAS "svg/logo.png")
list(APPEND BRIVON_RESOURCE_FILES "${BRIVON_GEN_RES_DIR}/svg/logo-app.ico" "${BRIVON_GEN_RES_DIR}/svg/logo.png")

# -- Roboto, taken from the Debian font package; each file is named style plus its number
set(BRIVON_ROBOTO_DIR "/usr/share/fonts/truetype/roboto/unhinted/RobotoTTF" CACHE PATH
    "Folder holding the Roboto TTF files")
set(BRIVON_ROBOTO_STYLES
    Black:1 BlackItalic:2 Bold:3 BoldItalic:6 Italic:9 Light:10 LightItalic:11
    Medium:12 MediumItalic:13 Regular:14 Thin:15 ThinItalic:16)
foreach(entry IN LISTS BRIVON_ROBOTO_STYLES)
    string(REPLACE ":" ";" fields "${entry}")
    list(GET fields 0 style)
    list(GET fields 1 number)
    set(src "${BRIVON_ROBOTO_DIR}/Roboto-${style}.ttf")
    if(NOT EXISTS "${src}")
        message(FATAL_ERROR "Roboto font ${src} not found: run scripts/setup.sh (package fonts-roboto-unhinted)")
    endif()
    set(dst "${BRIVON_GEN_RES_DIR}/font/Roboto-${style}-${number}.ttf")
    configure_file("${src}" "${dst}" COPYONLY)
    set_source_files_properties("${dst}" PROPERTIES QT_RESOURCE_ALIAS "font/Roboto-${style}-${number}.ttf")
    list(APPEND BRIVON_RESOURCE_FILES "${dst}")
endforeach()

# -- Qt's own translations, one self-contained catalogue per language, from the Debian package
find_program(BRIVON_LCONVERT NAMES lconvert PATHS /usr/lib/qt6/bin "${QT6_INSTALL_PREFIX}/bin" NO_DEFAULT_PATH)
if(NOT BRIVON_LCONVERT)
    find_program(BRIVON_LCONVERT NAMES lconvert-qt6 lconvert REQUIRED)
endif()
set(BRIVON_QT_TRANSLATIONS_DIR "/usr/share/qt6/translations" CACHE PATH "Folder of Qt's translation catalogues")
set(BRIVON_QT_CATALOGUES qt_en_US:en qt_zh_CN:zh_CN qt_de:de qt_ja:ja qt_zh_HK:zh_TW)
foreach(entry IN LISTS BRIVON_QT_CATALOGUES)
    string(REPLACE ":" ";" fields "${entry}")
    list(GET fields 0 out_name)
    list(GET fields 1 qt_lang)
    set(src "${BRIVON_QT_TRANSLATIONS_DIR}/qtbase_${qt_lang}.qm")
    if(NOT EXISTS "${src}")
        message(FATAL_ERROR "${src} not found: run scripts/setup.sh (package qt6-translations-l10n)")
    endif()
    set(dst "${BRIVON_GEN_RES_DIR}/translations/${out_name}.qm")
    add_custom_command(OUTPUT "${dst}"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${BRIVON_GEN_RES_DIR}/translations"
        COMMAND "${BRIVON_LCONVERT}" -i "${src}" -o "${dst}"
        DEPENDS "${src}"
        COMMENT "Converting Qt translations ${out_name}")
    set_source_files_properties("${dst}" PROPERTIES QT_RESOURCE_ALIAS "translations/${out_name}.qm")
    list(APPEND BRIVON_RESOURCE_FILES "${dst}")
endforeach()

# -- the program's own catalogues: .ts sources and compiled .qm, both under translations/
set(BRIVON_LANGUAGES en_US zh_CN de_DE ja_JP zh_HK)
set(BRIVON_TS_FILES "")
foreach(lang IN LISTS BRIVON_LANGUAGES)
    set(ts "${BRIVON_RES_DIR}/translations/${lang}.ts")
    list(APPEND BRIVON_TS_FILES "${ts}")
    set_source_files_properties("${ts}" PROPERTIES QT_RESOURCE_ALIAS "translations/${lang}.ts")
    list(APPEND BRIVON_RESOURCE_FILES "${ts}")
endforeach()
set_source_files_properties(${BRIVON_TS_FILES} PROPERTIES OUTPUT_LOCATION "${BRIVON_GEN_RES_DIR}/translations")
qt_add_translations(brivoncore
    TS_FILES ${BRIVON_TS_FILES}
    SOURCES ${BRIVON_CORE_SOURCES} ${BRIVON_UI_SOURCES}
    INCLUDE_DIRECTORIES "$<TARGET_PROPERTY:brivoncore,INCLUDE_DIRECTORIES>" "${CMAKE_SOURCE_DIR}/ui"
    QM_FILES_OUTPUT_VARIABLE BRIVON_QM_FILES
    LUPDATE_OPTIONS -no-obsolete -locations none)
foreach(qm IN LISTS BRIVON_QM_FILES)
    get_filename_component(qm_name "${qm}" NAME)
    set_source_files_properties("${qm}" PROPERTIES QT_RESOURCE_ALIAS "translations/${qm_name}")
    list(APPEND BRIVON_RESOURCE_FILES "${qm}")
endforeach()

qt_add_resources(brivoncore brivon_resources
    PREFIX "/resource"
    FILES ${BRIVON_RESOURCE_FILES})
