# What `make install` and the Debian packages put where: the library with its soname links,
# headers, pkg-config file, kovactl with its man page and bash completion, and the appliance's
# own programs (KOVA_APPLIANCE_PROGRAMS) into KOVA_APPLIANCE_ROOT when one is given.

install(TARGETS kovasdk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/kovasdk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# pkg-config: paths relative to ${prefix} where they lie under it, so a sysroot or a moved
# tree still resolves.
function(kova_pc_path var dir)
    if(IS_ABSOLUTE "${dir}")
        set(${var} "${dir}" PARENT_SCOPE)
    else()
        set(${var} "\${prefix}/${dir}" PARENT_SCOPE)
    endif()
endfunction()
kova_pc_path(KOVA_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
kova_pc_path(KOVA_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kovasdk.pc.in ${PROJECT_BINARY_DIR}/kovasdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kovasdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The appliance's programs: build/appliance-programs.list ("path program-file" lines, for the
# storage test bench), a header of {path, target} rows for the test sandboxes, and install rules.
set(KOVA_APPLIANCE_TARGETS "")
set(appliance_list "")
set(appliance_rows "")
foreach(pair ${KOVA_APPLIANCE_PROGRAMS})
    string(REPLACE "=" ";" parts ${pair})
    list(GET parts 0 where)
    list(GET parts 1 program)
    if(NOT TARGET ${program})
        message(FATAL_ERROR "KOVA_APPLIANCE_PROGRAMS: no program ${program} in tools/")
    endif()
    list(APPEND KOVA_APPLIANCE_TARGETS ${program})
    string(APPEND appliance_list "${where} $<TARGET_FILE:${program}>\n")
    string(APPEND appliance_rows "    {\"${where}\", \"${program}\"},\n")
    if(KOVA_APPLIANCE_ROOT)
        get_filename_component(where_dir ${where} DIRECTORY)
        install(TARGETS ${program} RUNTIME DESTINATION ${KOVA_APPLIANCE_ROOT}${where_dir})
    endif()
endforeach()
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/appliance-programs.list CONTENT "${appliance_list}")
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/appliance_programs.inc
     CONTENT "${appliance_rows}")

# Every other program is the administrator's, in the system's bin.
foreach(dir ${KOVA_TOOL_DIRS})
    get_filename_component(tool ${dir} NAME)
    if(TARGET ${tool} AND NOT tool IN_LIST KOVA_APPLIANCE_TARGETS)
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/tools/kovactl/completion.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kovactl)

# Man pages, made by help2man from each program's own --help, so a new option or subcommand
# is documented by its usage text. kovactl's page also gets every command's own usage.
# A cross build cannot run its programs here, a fuzz build's programs are not meant to run
# outside the fuzzer, and help2man may be missing outside scripts/install-deps: then there are
# no pages.
find_program(KOVA_HELP2MAN help2man)
if(KOVA_HELP2MAN AND NOT KOVA_CROSS_ARCH AND NOT KOVA_BUILD_FUZZ)
    set(man_dir ${PROJECT_BINARY_DIR}/man)
    set(man_pages "")
    # kova_man(program section "one-line summary" [appliance])
    function(kova_man program section summary)
        set(page ${man_dir}/${program}.${section})
        set(include_file ${man_dir}/${program}.h2m)
        set(include_args "")
        set(extra_depends "")
        if(program STREQUAL "kovactl")
            set(include_args --include=${include_file})
            add_custom_command(OUTPUT ${include_file}
                COMMAND ${CMAKE_COMMAND} -DKOVACTL=$<TARGET_FILE:kovactl> -DOUT=${include_file}
                        -P ${PROJECT_SOURCE_DIR}/cmake/kovactl-man-commands.cmake
                DEPENDS kovactl ${PROJECT_SOURCE_DIR}/cmake/kovactl-man-commands.cmake
                COMMENT "Collecting kovactl's command usages")
            set(extra_depends ${include_file})
        endif()
        add_custom_command(OUTPUT ${page}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${man_dir}
            COMMAND ${CMAKE_COMMAND} -E env --unset=KOVA_ROOT
                    ${KOVA_HELP2MAN} --no-info --no-discard-stderr --section=${section}
                    --name=${summary} --version-string=${PROJECT_VERSION}
                    --source=kovasdk --manual=kovasdk ${include_args}
                    --output=${page} $<TARGET_FILE:${program}>
            DEPENDS ${program} ${extra_depends}
            COMMENT "Man page ${program}(${section})"
            VERBATIM)
        set(man_pages ${man_pages} ${page} PARENT_SCOPE)
        # Appliance programs are documented where their programs go: with the appliance root.
        # Their section "8kova" keeps the pages apart from the system's tools of the same name.
        if(ARGN)
            if(KOVA_APPLIANCE_ROOT)
                install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
            endif()
        else()
            install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
        endif()
    endfunction()
    kova_man(kovactl 1 "manage the storage appliance through libkovasdk")
    set(KOVA_MAN_SUMMARY_get_key_value "print a key's value from a settings file")
    set(KOVA_MAN_SUMMARY_set_key_value "set a key's value in a settings file")
    set(KOVA_MAN_SUMMARY_sfdisk "the appliance's partition tool")
    set(KOVA_MAN_SUMMARY_kovalogset1 "record one event in an event log of the appliance")
    set(KOVA_MAN_SUMMARY_findhostd "the appliance discovery daemon")
    foreach(program ${KOVA_APPLIANCE_TARGETS})
        set(summary "${KOVA_MAN_SUMMARY_${program}}")
        if(NOT summary)
            set(summary "appliance program run by libkovasdk")
        endif()
        kova_man(${program} 8kova "${summary}" appliance)
    endforeach()
    add_custom_target(man ALL DEPENDS ${man_pages})
endif()
