# Generates server/class_ids.inc, a row CLASS(name, "{identifier}") for each coclass of the interface definition, for
# whoever reads the system's files without COM. The definition stays the only place where they are written.
set(definition ${CMAKE_SOURCE_DIR}/src/server/Mendwork.idl)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${definition})
file(READ ${definition} text)
string(REPLACE "[" " " text "${text}") # a list of CMake is not split inside brackets
string(REPLACE "]" " " text "${text}")
string(REGEX MATCHALL "uuid\\([-0-9A-F]+\\), helpstring\\(\"[A-Za-z]+ Object\"\\)[ \n]+coclass [A-Za-z]+" classes "${text}")
set(rows "")
foreach(class ${classes})
  string(REGEX REPLACE "uuid\\(([-0-9A-F]+)\\).* ([A-Za-z]+)$" "CLASS(\\2, \"{\\1}\")\n" row "${class}")
  string(APPEND rows "${row}")
endforeach()
if(NOT rows)
  message(FATAL_ERROR "no coclass was found in ${definition}")
endif()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/class_ids/server/class_ids.inc CONTENT "${rows}" @ONLY)
target_include_directories(mendwork_formats PUBLIC ${CMAKE_BINARY_DIR}/class_ids)
