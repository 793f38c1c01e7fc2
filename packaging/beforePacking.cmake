# Run by cpack on the files that it packs. Debian's packages get their copyright and changelogs;
# the contents of all packages depend neither on the umask of the user who makes them, nor on the time.
if(CPACK_GENERATOR STREQUAL DEB)
    foreach(component ${CPACK_COMPONENTS_ALL})
        string(TOUPPER CPACK_DEBIAN_${component}_PACKAGE_NAME name)
        file(COPY ${CPACK_DOCUMENTS} DESTINATION
             ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share/doc/${${name}})
    endforeach()
endif()
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
                    OUTPUT_VARIABLE commitTime OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(commitTime)
        set(ENV{SOURCE_DATE_EPOCH} ${commitTime})
    endif()
endif()
