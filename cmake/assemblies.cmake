# mendwork_assembly(): makes the manifest of a module as a side-by-side assembly, Orvane.NAME.manifest, in the build
# folder, so that a program which depends on the assembly creates the module's objects without registration. All of it is
# read where it is written already: the interface definition, the resource script, the module's facts.
# The assembly is not named like its library: Windows would look for its manifest inside a library of that name.

# usage: mendwork_take(RESULT FILE REGEX): what the first group of the expression finds in the file, which must be there
function(mendwork_take RESULT FILE REGEX)
  set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${FILE})
  file(READ ${FILE} text)
  if(NOT text MATCHES "${REGEX}")
    message(FATAL_ERROR "${REGEX} was not found in ${FILE}")
  endif()
  set(${RESULT} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

function(mendwork_assembly NAME ROOM FACTS)
  set(room ${CMAKE_SOURCE_DIR}/src/${ROOM})
  mendwork_take(version ${room}/${NAME}.rc "FILEVERSION ([0-9, ]+)")
  string(REPLACE ", " "." version "${version}")
  mendwork_take(class_version ${room}/${FACTS} "OwnModule = {L\"${NAME}\", ([0-9]+)")
  mendwork_take(library ${room}/${NAME}.idl "uuid\\(([-0-9A-F]+)\\),[ \n]+version")
  mendwork_take(library_version ${room}/${NAME}.idl "version\\(([0-9.]+)\\)")
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(architecture amd64)
  else()
    set(architecture x86)
  endif()

  file(READ ${room}/${NAME}.idl text)
  string(REPLACE "[" " " text "${text}") # a list of CMake is not split inside brackets
  string(REPLACE "]" " " text "${text}")
  string(REPLACE ";" " " text "${text}")
  string(REGEX MATCHALL "uuid\\([-0-9A-F]+\\), helpstring\\(\"[A-Za-z]+ Object\"\\)[ \n]+coclass [A-Za-z]+" classes "${text}")
  string(REGEX MATCHALL "uuid\\([-0-9A-F]+\\), dual, oleautomation,[ \n]+helpstring\\(\"[A-Za-z ]+\"\\)[ \n]+interface [A-Za-z]+"
    interfaces "${text}")
  if(NOT classes OR NOT interfaces)
    message(FATAL_ERROR "no coclass or no interface was found in ${room}/${NAME}.idl")
  endif()
  set(rows "    <typelib tlbid=\"{${library}}\" version=\"${library_version}\" helpdir=\"\"/>\n")
  foreach(class ${classes})
    string(REGEX REPLACE "uuid\\(([-0-9A-F]+)\\).* ([A-Za-z]+)$"
      "    <comClass clsid=\"{\\1}\" description=\"\\2 Object\" threadingModel=\"Apartment\"\n      tlbid=\"{${library}}\" progid=\"${NAME}.\\2.${class_version}\">\n      <progid>${NAME}.\\2</progid>\n    </comClass>\n"
      row "${class}")
    string(APPEND rows "${row}")
  endforeach()
  string(APPEND rows "  </file>\n")
  # The system's marshaller for automation interfaces.
  foreach(interface ${interfaces})
    string(REGEX REPLACE "uuid\\(([-0-9A-F]+)\\).* ([A-Za-z]+)$"
      "  <comInterfaceExternalProxyStub name=\"\\2\" iid=\"{\\1}\" tlbid=\"{${library}}\"\n    proxyStubClsid32=\"{00020424-0000-0000-C000-000000000046}\"/>\n"
      row "${interface}")
    string(APPEND rows "${row}")
  endforeach()
  set(manifest ${CMAKE_BINARY_DIR}/Orvane.${NAME}.manifest)
  file(CONFIGURE OUTPUT ${manifest} @ONLY CONTENT
"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>
<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">
  <assemblyIdentity type=\"win32\" name=\"Orvane.@NAME@\" version=\"@version@\" processorArchitecture=\"@architecture@\"/>
  <file name=\"@NAME@.dll\">
@rows@</assembly>
")
  install(FILES ${manifest} DESTINATION .)
endfunction()

mendwork_assembly(Mendwork server mendwork_module.cpp)
mendwork_assembly(MendworkKit kit kit_module.cpp)
