# What Debian wants of a package's files beyond those of an installation: licence and changes under the name of the
# package, and compressed manual pages, of which those that only lead to another one are links. CPack runs this on the
# folder of each component before it makes the packages.
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
    set(doc ${share}/doc/${package})

    string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
    file(WRITE ${doc}/changelog "tarsil32 (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
        "  * Version ${CPACK_PACKAGE_VERSION} of the library.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
    file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../LICENSE ${doc}/copyright)

    file(GLOB pages ${share}/man/man*/*.[1-9])
    set(whole_files ${doc}/changelog)
    foreach(page ${pages})
        file(READ ${page} text LIMIT 100)
        if(text MATCHES "^[.]so man[1-9]/([^\n]+)")
            file(REMOVE ${page})
            file(CREATE_LINK ${CMAKE_MATCH_1}.gz ${page}.gz SYMBOLIC)
        else()
            list(APPEND whole_files ${page})
        endif()
    endforeach()
    execute_process(COMMAND gzip -9 -n ${whole_files} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
