# How the program is installed and packaged: a .deb on Linux, a drag-and-drop .dmg on macOS.
# `make package` builds the one for this system.
include(GNUInstallDirs)

set(BC_PACKAGING ${CMAKE_SOURCE_DIR}/packaging)
set(BC_APP_ID com.kestrove.Brindlecourt)
set(BC_ICON_SIZES 16 24 32 48 64 128 256 512)
find_program(RSVG_CONVERT rsvg-convert)

# The icon is drawn once, as SVG; each bitmap size is rendered from it.
function(bc_render_icon size output)
  add_custom_command(OUTPUT ${output}
    COMMAND ${RSVG_CONVERT} -w ${size} -h ${size} -o ${output} ${BC_PACKAGING}/brindlecourt.svg
    DEPENDS ${BC_PACKAGING}/brindlecourt.svg VERBATIM)
endfunction()

# Debian wants manual pages and the changelog compressed, reproducibly (no name or time inside).
function(bc_gzip input output)
  add_custom_command(OUTPUT ${output}
    COMMAND gzip -9nc ${input} > ${output}
    DEPENDS ${input})
endfunction()

set(BC_PACKAGE_FILES)
bc_gzip(${BC_PACKAGING}/brindlecourt.1 ${CMAKE_BINARY_DIR}/packaging/brindlecourt.1.gz)
configure_file(${BC_PACKAGING}/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog @ONLY)
bc_gzip(${CMAKE_BINARY_DIR}/packaging/changelog ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
configure_file(${BC_PACKAGING}/${BC_APP_ID}.metainfo.xml
  ${CMAKE_BINARY_DIR}/packaging/${BC_APP_ID}.metainfo.xml @ONLY)
list(APPEND BC_PACKAGE_FILES
  ${CMAKE_BINARY_DIR}/packaging/brindlecourt.1.gz ${CMAKE_BINARY_DIR}/packaging/changelog.gz)

if(RSVG_CONVERT AND NOT APPLE)
  foreach(size IN LISTS BC_ICON_SIZES)
    set(png ${CMAKE_BINARY_DIR}/packaging/icons/${size}/brindlecourt.png)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging/icons/${size})
    bc_render_icon(${size} ${png})
    list(APPEND BC_PACKAGE_FILES ${png})
    install(FILES ${png}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
  endforeach()
endif()
add_custom_target(package_files ALL DEPENDS ${BC_PACKAGE_FILES})

if(APPLE)
  # The bundle holds the program, its icon and its property list; CPack wraps it in a .dmg.
  configure_file(${BC_PACKAGING}/Info.plist.in ${CMAKE_BINARY_DIR}/packaging/Info.plist @ONLY)
  set_target_properties(brindlecourt PROPERTIES
    MACOSX_BUNDLE TRUE
    MACOSX_BUNDLE_INFO_PLIST ${CMAKE_BINARY_DIR}/packaging/Info.plist)
  if(RSVG_CONVERT)
    set(iconset ${CMAKE_BINARY_DIR}/packaging/brindlecourt.iconset)
    set(icns ${CMAKE_BINARY_DIR}/packaging/brindlecourt.icns)
    file(MAKE_DIRECTORY ${iconset})
    set(pngs)
    foreach(size 16 32 128 256 512)
      math(EXPR double "${size} * 2")
      bc_render_icon(${size} ${iconset}/icon_${size}x${size}.png)
      bc_render_icon(${double} ${iconset}/icon_${size}x${size}@2x.png)
      list(APPEND pngs ${iconset}/icon_${size}x${size}.png ${iconset}/icon_${size}x${size}@2x.png)
    endforeach()
    add_custom_command(OUTPUT ${icns} COMMAND iconutil -c icns -o ${icns} ${iconset} DEPENDS ${pngs})
    target_sources(brindlecourt PRIVATE ${icns})
    set_source_files_properties(${icns} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
  endif()
  install(TARGETS brindlecourt BUNDLE DESTINATION .)
  set(CPACK_GENERATOR DragNDrop)
  set(CPACK_DMG_VOLUME_NAME Brindlecourt)
else()
  install(TARGETS brindlecourt RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${BC_PACKAGING}/brindlecourt.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${BC_PACKAGING}/brindlecourt.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/${BC_APP_ID}.metainfo.xml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/brindlecourt.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES README.md ${BC_PACKAGING}/THIRD-PARTY-NOTICES ${BC_PACKAGING}/copyright
    ${CMAKE_BINARY_DIR}/packaging/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/brindlecourt)
  set(CPACK_GENERATOR DEB)
endif()

set(CPACK_PACKAGE_NAME brindlecourt)
set(CPACK_PACKAGE_VENDOR Kestrove)
set(CPACK_PACKAGE_VERSION ${BRINDLECOURT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "turn message history into records a court can rely on")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://kestrove.com/brindlecourt")
set(CPACK_PACKAGE_INSTALL_DIRECTORY Brindlecourt)
set(CPACK_PACKAGE_FILE_NAME brindlecourt-${BRINDLECOURT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kestrove <support@kestrove.com>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION
  "Brindlecourt reads a Messages database or a WhatsApp history without ever
changing it and makes records of it: paginated PDF pages with Bates numbers,
a browsable HTML archive and spreadsheets, each fingerprinted with SHA-256
and written into a chain-of-custody log, sealed snapshots of the database,
exhibits with redaction, and a draft statement and encrypted bundle for
counsel.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The libraries' packages come from dpkg-shlibdeps; these are the programs and data it runs with.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "ffmpeg, fonts-noto-core, fonts-noto-color-emoji, tesseract-ocr-eng, pocketsphinx-en-us")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-noto-cjk")
include(CPack)
