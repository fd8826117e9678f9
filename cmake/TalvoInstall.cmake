# The install layout, the same as the build tree's:
#   bin/                                   talvo-printers, talvo-add-print-queue
#   share/talvo-add-print-queue/           the resources folder, found relative to the programs
#   share/ppd/talvo/                       the model PPDs (their rule is in tools/ppd-gen)
#   share/applications/, share/icons/      the wizard's desktop entry and icon
#   share/man/man1/                        the manual pages
#   share/doc/talvo-printer-driver/        copyright and changelog
# The simulator, the PPD generator, the tests, fuzzers and benchmarks stay out.
#
# Included at the end of the top-level CMakeLists.txt, so every program target
# already exists here: the wizard's rules are simply left out while it does not.

find_program(TALVO_GZIP gzip REQUIRED)

set(TALVO_PACKAGING_DIR ${PROJECT_SOURCE_DIR}/packaging)
set(TALVO_GENERATED_DOC_DIR ${CMAKE_BINARY_DIR}/packaging)

# Plain files are 0644 and folders 0755 whatever the umask or the build tree
# say: the package is checked for it, and the resources folder is copied from
# the build tree, where tools may have left other modes.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(TALVO_FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# talvo_gzip_file(SOURCE OUTPUT-NAME): compresses SOURCE into the build tree at
# build time, with -n so the bytes do not change from one build to the next.
# Appends the result to the list TALVO_DOC_OUTPUTS.
function(talvo_gzip_file source name)
    set(output ${TALVO_GENERATED_DOC_DIR}/${name})
    string(REGEX REPLACE "\\.gz$" "" plain ${output})
    add_custom_command(OUTPUT ${output}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${TALVO_GENERATED_DOC_DIR}
        COMMAND ${CMAKE_COMMAND} -E copy ${source} ${plain}
        COMMAND ${TALVO_GZIP} -9 -n -f ${plain}
        DEPENDS ${source}
        COMMENT "Compressing ${name}"
        VERBATIM)
    set(TALVO_DOC_OUTPUTS ${TALVO_DOC_OUTPUTS} ${output} PARENT_SCOPE)
endfunction()

# --- Programs ---------------------------------------------------------------
install(TARGETS talvo-printers RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET talvo-add-print-queue)
    install(TARGETS talvo-add-print-queue RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# --- Resources ----------------------------------------------------------------
# The whole resources folder of the build tree, whatever the resource rules put
# there (settings, Info.plist, translations, images, the walkup text, the test
# page): read at install time, so a new resource needs no rule here.
install(DIRECTORY ${TALVO_BUILD_RESOURCE_DIR}/
    DESTINATION ${TALVO_RESOURCE_SUBDIR}
    FILE_PERMISSIONS ${TALVO_FILE_PERMISSIONS}
    DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})

# --- Manual pages -----------------------------------------------------------
set(TALVO_DOC_OUTPUTS)
talvo_gzip_file(${TALVO_PACKAGING_DIR}/talvo-printers.1 talvo-printers.1.gz)
install(FILES ${TALVO_GENERATED_DOC_DIR}/talvo-printers.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 PERMISSIONS ${TALVO_FILE_PERMISSIONS})

# --- The wizard's desktop entry, icon and manual page ------------------------
if(TARGET talvo-add-print-queue)
    talvo_gzip_file(${TALVO_PACKAGING_DIR}/talvo-add-print-queue.1 talvo-add-print-queue.1.gz)
    install(FILES ${TALVO_GENERATED_DOC_DIR}/talvo-add-print-queue.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 PERMISSIONS ${TALVO_FILE_PERMISSIONS})
    install(FILES ${TALVO_PACKAGING_DIR}/talvo-add-print-queue.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications PERMISSIONS ${TALVO_FILE_PERMISSIONS})
    # The same picture as the one in the resources folder, where the wizard
    # itself takes it from.
    install(FILES ${TALVO_BUILD_RESOURCE_DIR}/images/talvo-add-print-queue.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
        PERMISSIONS ${TALVO_FILE_PERMISSIONS})
endif()

# --- Copyright and changelog ------------------------------------------------
# Debian wants both beside every package's documentation; the version of the
# changelog's last entry is the project's.
configure_file(${TALVO_PACKAGING_DIR}/changelog.in ${TALVO_GENERATED_DOC_DIR}/changelog.in @ONLY)
talvo_gzip_file(${TALVO_GENERATED_DOC_DIR}/changelog.in changelog.gz)
install(FILES ${TALVO_PACKAGING_DIR}/copyright ${TALVO_GENERATED_DOC_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DOCDIR} PERMISSIONS ${TALVO_FILE_PERMISSIONS})

add_custom_target(talvo_docs ALL DEPENDS ${TALVO_DOC_OUTPUTS})

# Everything the install rules take from the build tree, and nothing else: the
# package is built with this target, so a tool or test that does not build
# does not stop it.
add_custom_target(talvo_install_files)
add_dependencies(talvo_install_files talvo-printers talvo_docs)
foreach(target IN ITEMS talvo-add-print-queue talvo_ppds)
    if(TARGET ${target})
        add_dependencies(talvo_install_files ${target})
    endif()
endforeach()
# The resource targets fill the resources folder installed as a whole.
get_property(talvo_resource_targets DIRECTORY ${PROJECT_SOURCE_DIR}/resources PROPERTY BUILDSYSTEM_TARGETS)
if(talvo_resource_targets)
    add_dependencies(talvo_install_files ${talvo_resource_targets})
endif()
