# Run by cpack on the files that it packs: the contents of the packages depend neither on
# the umask of the user who makes them, nor on the time.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
                    OUTPUT_VARIABLE commitTime OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(commitTime)
        set(ENV{SOURCE_DATE_EPOCH} ${commitTime})
    endif()
endif()
