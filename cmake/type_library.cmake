# mendwork_type_library(): makes a module's type library, NAME.tlb, and the C++ header NAME_TLB.h from its interface
# definition, both in the build folder, and a target INTERFACES that puts the header's folder on the include path.
find_program(WIDL ${MENDWORK_ARCH}-w64-mingw32-widl REQUIRED)
# widl writes the time into a type library, where the same sources shall give the same bytes.
find_program(FAKETIME faketime REQUIRED)
set(at_no_time ${CMAKE_COMMAND} -E env TZ=UTC ${FAKETIME} -f "2000-01-01 00:00:00")
# The interface definitions and stdole2.tlb of Wine's development packages.
set(widl_flags -I/usr/include/wine/wine/windows -L/usr/lib/x86_64-linux-gnu/wine/x86_64-windows)

function(mendwork_type_library NAME ROOM INTERFACES TARGET)
  set(generated ${CMAKE_BINARY_DIR}/generated/${ROOM})
  set(idl ${NAME}.idl) # named from its own folder: widl writes the name into the header
  file(MAKE_DIRECTORY ${generated})
  add_custom_command(
    OUTPUT ${generated}/${NAME}_TLB.h ${generated}/${NAME}.tlb
    COMMAND ${WIDL} ${widl_flags} -h -o ${generated}/${NAME}_TLB.h ${idl}
    COMMAND ${at_no_time} ${WIDL} ${widl_flags} -t -o ${generated}/${NAME}.tlb ${idl}
    DEPENDS ${CMAKE_SOURCE_DIR}/src/${ROOM}/${idl}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/src/${ROOM}
    VERBATIM)
  add_custom_target(${TARGET} DEPENDS ${generated}/${NAME}_TLB.h ${generated}/${NAME}.tlb)
  add_library(${INTERFACES} INTERFACE)
  target_include_directories(${INTERFACES} INTERFACE ${CMAKE_BINARY_DIR}/generated)
  add_dependencies(${INTERFACES} ${TARGET})
endfunction()

set(MENDWORK_GENERATED ${CMAKE_BINARY_DIR}/generated/server)
mendwork_type_library(Mendwork server mendwork_interfaces mendwork_type_library)
mendwork_type_library(MendworkKit kit mendwork_kit_interfaces mendwork_kit_type_library)
