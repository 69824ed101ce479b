# Run by CPack when everything is installed and nothing packed yet: what Debian wants elsewhere or
# otherwise than `cmake --install` leaves it. A file that is no longer there fails the package.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH, where it is set

function(compress file)
  # Without -n the same sources would make another package each time.
  execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(document component package)
  set(doc ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share/doc/${package})
  # Not file(INSTALL): CPack has set DESTDIR.
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${doc}/copyright COPYONLY)
  configure_file(${CPACK_WAKELATCH_SOURCE_DIR}/CHANGELOG.md ${doc}/changelog COPYONLY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${doc}/changelog.Debian @ONLY)
  compress(${doc}/changelog)
  compress(${doc}/changelog.Debian)
endfunction()
document(program wakelatch)
document(dev libwakelatch-dev)

set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/program/usr/share)
compress(${share}/man/man1/wakelatch.1)
file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
file(MAKE_DIRECTORY ${share}/doc/wakelatch/examples)
file(RENAME ${share}/wakelatch/logrotate/wakelatch ${share}/doc/wakelatch/examples/logrotate)
file(REMOVE_RECURSE ${share}/wakelatch/logrotate ${share}/wakelatch/launchd
     ${share}/wakelatch/newsyslog)

# CPack's own stripping leaves the compiler's comments, and the library as it is.
set(strip strip --remove-section=.comment --remove-section=.note --enable-deterministic-archives)
execute_process(COMMAND ${strip} ${share}/../bin/wakelatch ${share}/../libexec/wakelatch/caffeinate
                COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE archive ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/dev/usr/lib/*.a)
execute_process(COMMAND ${strip} --strip-debug ${archive} COMMAND_ERROR_IS_FATAL ANY)

# Whatever the umask was when the sources were checked out and built.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
