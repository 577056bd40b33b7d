# The one SQLite of every process: the amalgamation shipped in the npm registry's
# better-sqlite3 package, fetched once per build tree at a pinned version and checked
# against its sha256. Compiled as one static library that only the platform library links;
# every other target reaches SQLite through the platform library, so that a process never
# holds two copies (two copies would not see each other's POSIX file locks).
set(QUOR_SQLITE_PACKAGE better-sqlite3-13.2.0)  # ships SQLite 3.54.1
set(QUOR_SQLITE_URL https://registry.npmjs.org/better-sqlite3/-/${QUOR_SQLITE_PACKAGE}.tgz)
set(QUOR_SQLITE_SHA256 40487589df3496f2ee0079d22b73c63fccebe7db0e8ee9a2c42421861e321e0b)

set(QUOR_SQLITE_DIR ${CMAKE_BINARY_DIR}/_deps/sqlite)
set(_archive ${CMAKE_BINARY_DIR}/_deps/${QUOR_SQLITE_PACKAGE}.tgz)
if(NOT EXISTS ${QUOR_SQLITE_DIR}/sqlite3.c)
  message(STATUS "Fetching SQLite from ${QUOR_SQLITE_URL}")
  file(DOWNLOAD ${QUOR_SQLITE_URL} ${_archive} EXPECTED_HASH SHA256=${QUOR_SQLITE_SHA256}
       TLS_VERIFY ON STATUS _status)
  list(GET _status 0 _code)
  if(NOT _code EQUAL 0)
    file(REMOVE ${_archive})
    message(FATAL_ERROR "Could not fetch ${QUOR_SQLITE_URL}: ${_status}")
  endif()
  set(_unpacked ${CMAKE_BINARY_DIR}/_deps/unpacked)
  file(REMOVE_RECURSE ${_unpacked})
  file(ARCHIVE_EXTRACT INPUT ${_archive} DESTINATION ${_unpacked}
       PATTERNS package/deps/sqlite3/sqlite3.c package/deps/sqlite3/sqlite3.h)
  file(MAKE_DIRECTORY ${QUOR_SQLITE_DIR})
  file(RENAME ${_unpacked}/package/deps/sqlite3/sqlite3.h ${QUOR_SQLITE_DIR}/sqlite3.h)
  file(RENAME ${_unpacked}/package/deps/sqlite3/sqlite3.c ${QUOR_SQLITE_DIR}/sqlite3.c)
  file(REMOVE_RECURSE ${_unpacked} ${_archive})
endif()

enable_language(C)
add_library(quorsqlite STATIC ${QUOR_SQLITE_DIR}/sqlite3.c)
target_include_directories(quorsqlite SYSTEM INTERFACE ${QUOR_SQLITE_DIR})
# Defaults kept where the module's statements need them: double-quoted strings stay
# accepted (the ATTACH of a quoted path). Threads share nothing, so serialized mode. FTS5
# holds the search index (its trigram tokenizer finds substrings in any script).
target_compile_definitions(quorsqlite PRIVATE
  SQLITE_THREADSAFE=1
  SQLITE_DEFAULT_MEMSTATUS=0
  SQLITE_DEFAULT_WAL_SYNCHRONOUS=1
  SQLITE_OMIT_LOAD_EXTENSION
  SQLITE_OMIT_DEPRECATED
  SQLITE_USE_ALLOCA
  SQLITE_ENABLE_COLUMN_METADATA
  SQLITE_ENABLE_FTS5)
target_compile_options(quorsqlite PRIVATE -O2 -w)
set_target_properties(quorsqlite PROPERTIES C_STANDARD 99 POSITION_INDEPENDENT_CODE ON
                      C_COMPILER_LAUNCHER "${CCACHE}")
target_link_libraries(quorsqlite INTERFACE Threads::Threads ${CMAKE_DL_LIBS} m)
