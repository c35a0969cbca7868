# Run by cpack on the tree that it packs: gives the documents the form that Debian's policy asks for.

set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${documents}/changelog
"${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * CHANGELOG.md lists the changes.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
file(RENAME ${documents}/LICENSE ${documents}/copyright)
file(GLOB manuals ${share}/man/man1/*.1)
execute_process(COMMAND gzip --best --no-name ${documents}/changelog ${manuals} COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD ${documents}/changelog.gz PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
