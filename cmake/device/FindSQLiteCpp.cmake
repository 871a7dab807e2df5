if(NOT TARGET SQLiteCpp)
  add_library(SQLiteCpp STATIC IMPORTED GLOBAL)
  add_library(vexa_sqlite3 STATIC IMPORTED GLOBAL)
  set_target_properties(vexa_sqlite3 PROPERTIES
    IMPORTED_LOCATION ${VEXA_DEVICE_CACHE}/sqlitecpp-build/sqlite3/libsqlite3.a)
  target_include_directories(vexa_sqlite3 SYSTEM INTERFACE ${VEXA_DEVICE_CACHE}/sqlitecpp/sqlite3)
  set_target_properties(SQLiteCpp PROPERTIES
    IMPORTED_LOCATION ${VEXA_DEVICE_CACHE}/sqlitecpp-build/libSQLiteCpp.a)
  target_include_directories(SQLiteCpp SYSTEM INTERFACE ${VEXA_DEVICE_CACHE}/sqlitecpp/include)
  target_link_libraries(SQLiteCpp INTERFACE vexa_sqlite3 ${CMAKE_DL_LIBS})
endif()
set(SQLiteCpp_FOUND TRUE)
