# Read by cpack itself: the same files make the same packages, whenever and by whomever.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
                    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(epoch)
        set(ENV{SOURCE_DATE_EPOCH} ${epoch})
    endif()
endif()
